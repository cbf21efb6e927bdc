#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// A made-up engine. Each output is an offset plus a weighted sum of the inputs, element by element.
namespace AffineEngine {

class Network {
 public:
    // Nothing if the text is not a whole network.
    static std::optional<Network> parse(const std::string& text);

    size_t inputs() const { return inputs_; }
    size_t outputs() const { return coefficients_.size(); }
    size_t bytes() const { return outputs() * (1 + inputs_) * sizeof(float); }

    // Reads `count` elements of each input, and writes as many to each output that is not null.
    void run(const std::vector<const float*>& inputs, const std::vector<float*>& outputs, size_t count) const;

 private:
    size_t inputs_ = 0;
    std::vector<std::vector<float>> coefficients_;  // for each output: its offset, then a weight for each input
};

}  // namespace AffineEngine
