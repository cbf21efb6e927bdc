#pragma once

#include <filesystem>
#include <vector>

/// A stretch in which somebody speaks, in seconds from the beginning of the recording.
struct Segment {
    double begin;
    double end;
};

/// The probability of a block from which on it counts as speech.
constexpr float kBound = 0.5F;

/// The stretches whose blocks reach the bound. Pauses of up to 0.2 s between two words belong to the speech.
/// @param probabilities  one for each block of a recording
std::vector<Segment> findSegments(const std::vector<float>& probabilities);

/// Reads a label track as Audacity writes it: begin, end and a label in each line, between tabs. The labels are left
/// out. Raises std::runtime_error with the line that isn't so.
std::vector<Segment> readSegments(const std::filesystem::path& path);

/// How close found segments are to the true ones.
struct Agreement {
    double wrongShare;      ///< of the blocks whose middle only one of both takes for speech
    double farthestBorder;  ///< from a true border to the closest one that was found, in seconds
};
Agreement compare(const std::vector<Segment>& found, const std::vector<Segment>& actual, size_t blocks);
