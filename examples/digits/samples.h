#pragma once

#include <filesystem>
#include <vector>

/// One image with the digit that it shows, and what the trainer's own model says of it.
struct Sample {
    int label;
    std::vector<float> pixels;         // row by row, ink from 0 to 16
    std::vector<float> probabilities;  // of each digit
};

/// Reads a table whose header names the columns "label", "pixel...", "probability...". Raises std::runtime_error with
/// the line when there is no such file or a line that does not fit the header.
std::vector<Sample> readSamples(const std::filesystem::path& path);
