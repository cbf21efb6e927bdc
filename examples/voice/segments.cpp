#include "segments.h"

#include "detector.h"
#include "recording.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

constexpr double kLongestPause = 0.2;

double timeOf(double block) { return block * kBlock / kSampleRate; }

bool isSpeech(const std::vector<Segment>& segments, double time) {
    return std::any_of(segments.begin(), segments.end(),
                       [=](const Segment& segment) { return segment.begin <= time && time < segment.end; });
}

std::vector<double> bordersOf(const std::vector<Segment>& segments) {
    std::vector<double> borders;
    for (const Segment& segment : segments) borders.insert(borders.end(), {segment.begin, segment.end});
    return borders;
}

}  // namespace

std::vector<Segment> findSegments(const std::vector<float>& probabilities) {
    std::vector<Segment> segments;
    for (size_t block = 0; block < probabilities.size(); ++block) {
        if (probabilities[block] < kBound) continue;
        const double begin = timeOf(static_cast<double>(block));
        if (segments.empty() || begin - segments.back().end > kLongestPause) segments.push_back({begin, begin});
        segments.back().end = timeOf(static_cast<double>(block + 1));
    }
    return segments;
}

std::vector<Segment> readSegments(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot read " + path.string());
    std::vector<Segment> segments;
    for (std::string line; std::getline(file, line);) {
        Segment segment{};
        if (!(std::istringstream(line) >> segment.begin >> segment.end) || segment.end < segment.begin) {
            throw std::runtime_error(path.string() + ": not the begin and end of a segment: " + line);
        }
        segments.push_back(segment);
    }
    return segments;
}

Agreement compare(const std::vector<Segment>& found, const std::vector<Segment>& actual, size_t blocks) {
    size_t wrong = 0;
    for (size_t block = 0; block < blocks; ++block) {
        const double middle = timeOf(static_cast<double>(block) + 0.5);
        wrong += isSpeech(found, middle) != isSpeech(actual, middle) ? 1 : 0;
    }
    Agreement agreement{static_cast<double>(wrong) / static_cast<double>(blocks), 0};
    for (const double border : bordersOf(actual)) {
        double closest = std::numeric_limits<double>::infinity();
        for (const double other : bordersOf(found)) closest = std::min(closest, std::abs(other - border));
        agreement.farthestBorder = std::max(agreement.farthestBorder, closest);
    }
    return agreement;
}
