#pragma once

#include <filesystem>
#include <vector>

/// Samples of a recording for each second.
constexpr int kSampleRate = 16000;

/// The samples of a WAV file, from -1 to 1. Raises std::runtime_error with what was found and what is wanted for a file
/// that isn't PCM of 16 bits in one channel at `kSampleRate`, that is cut short, or that has no samples.
std::vector<float> readRecording(const std::filesystem::path& path);
