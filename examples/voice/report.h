#pragma once

#include "segments.h"

#include <filesystem>
#include <vector>

/// What was heard in a recording.
struct Hearing {
    std::vector<float> samples;
    std::vector<float> probabilities;  ///< for each block
    std::vector<Segment> segments;
};

/// Draws loudness and probability over time in the terminal, with the segments below, some ten seconds to a strip.
void draw(const Hearing& hearing);

// All three raise std::runtime_error where the file can't be written.

/// A label track, which Audacity reads: begin and end of each segment in seconds, and "speech", between tabs.
void writeText(const Hearing& hearing, const std::filesystem::path& path);
/// The segments in seconds, and the probability of each block.
void writeJson(const Hearing& hearing, const std::filesystem::path& path);
/// A plot: the recording, the probability above it, and the segments behind both.
void writeSvg(const Hearing& hearing, const std::filesystem::path& path);
