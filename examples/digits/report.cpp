#include "report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <iostream>

namespace {

constexpr size_t kSide = 8;
constexpr size_t kDigits = 10;
constexpr std::string_view kInk = " .:-=+*#%@";
constexpr float kBlackest = 16;

char inkOf(float pixel) {
    const float share = std::clamp(pixel / kBlackest, 0.0F, 1.0F);
    return kInk[static_cast<size_t>(std::lround(share * static_cast<float>(kInk.size() - 1)))];
}

}  // namespace

int mostLikely(const std::vector<float>& probabilities) {
    return static_cast<int>(std::max_element(probabilities.begin(), probabilities.end()) - probabilities.begin());
}

void drawDigit(const Sample& sample, const std::vector<float>& probabilities) {
    const size_t lines = std::max(sample.pixels.size() / kSide, probabilities.size());
    for (size_t line = 0; line < lines; ++line) {
        std::string ink(2 * kSide, ' ');
        for (size_t i = 0; i < kSide && line * kSide + i < sample.pixels.size(); ++i) {
            ink[2 * i] = ink[2 * i + 1] = inkOf(sample.pixels[line * kSide + i]);
        }
        std::cout << "  |" << ink << "|";
        if (line < probabilities.size()) {
            std::cout << "   " << line << "  " << std::fixed << std::setprecision(4) << probabilities[line] << "  "
                      << std::string(static_cast<size_t>(std::lround(probabilities[line] * 40)), '#');
        }
        std::cout << "\n";
    }
}

void printConfusion(const std::vector<Sample>& samples, const Predictions& predictions) {
    std::array<std::array<int, kDigits>, kDigits> counts{};
    for (size_t i = 0; i < samples.size(); ++i) {
        ++counts.at(static_cast<size_t>(samples[i].label)).at(static_cast<size_t>(mostLikely(predictions[i])));
    }
    std::cout << "shown \\ taken for";
    for (size_t digit = 0; digit < kDigits; ++digit) std::cout << std::setw(4) << digit;
    for (size_t row = 0; row < kDigits; ++row) {
        std::cout << "\n" << std::setw(17) << row;
        for (const int count : counts[row]) std::cout << std::setw(4) << (count == 0 ? "." : std::to_string(count));
    }
    std::cout << "\n";
}

double accuracyOf(const std::vector<Sample>& samples, const Predictions& predictions) {
    size_t right = 0;
    for (size_t i = 0; i < samples.size(); ++i) right += mostLikely(predictions[i]) == samples[i].label ? 1 : 0;
    return static_cast<double>(right) / static_cast<double>(samples.size());
}

Predictions trainerPredictions(const std::vector<Sample>& samples) {
    Predictions predictions;
    for (const Sample& sample : samples) predictions.push_back(sample.probabilities);
    return predictions;
}

float largestDifference(const Predictions& a, const Predictions& b) {
    float largest = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        for (size_t j = 0; j < a[i].size(); ++j) largest = std::max(largest, std::abs(a[i][j] - b.at(i).at(j)));
    }
    return largest;
}

size_t differingDigits(const Predictions& a, const Predictions& b) {
    size_t differing = 0;
    for (size_t i = 0; i < a.size(); ++i) differing += mostLikely(a[i]) != mostLikely(b.at(i)) ? 1 : 0;
    return differing;
}
