#include "affine_engine.h"

#include <locale>
#include <sstream>

namespace AffineEngine {

std::optional<Network> Network::parse(const std::string& text) {
    constexpr size_t kMost = 64;
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    Network network;
    std::string begin;
    size_t outputs = 0;
    in >> begin >> network.inputs_ >> outputs;
    if (!in || begin != "affine" || network.inputs_ > kMost || outputs > kMost) return std::nullopt;
    network.coefficients_.assign(outputs, std::vector<float>(1 + network.inputs_));
    for (std::vector<float>& row : network.coefficients_) {
        for (float& coefficient : row) in >> coefficient;
    }
    std::string end;
    in >> end;
    if (!in || end != "end") return std::nullopt;
    return network;
}

void Network::run(const std::vector<const float*>& inputs, const std::vector<float*>& outputs, size_t count) const {
    for (size_t y = 0; y < outputs.size(); ++y) {
        if (outputs[y] == nullptr) continue;
        const std::vector<float>& row = coefficients_[y];
        for (size_t i = 0; i < count; ++i) {
            float sum = row[0];
            for (size_t x = 0; x < inputs_; ++x) sum += row[1 + x] * inputs[x][i];
            outputs[y][i] = sum;
        }
    }
}

}  // namespace AffineEngine
