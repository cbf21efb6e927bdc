#pragma once

#include "samples.h"

#include <string>
#include <vector>

/// The probability of each digit, for each sample.
using Predictions = std::vector<std::vector<float>>;

/// The digit with the largest probability.
int mostLikely(const std::vector<float>& probabilities);

/// The image in characters, with the digits' probabilities beside it.
void drawDigit(const Sample& sample, const std::vector<float>& probabilities);

/// How often each digit (row) was taken for which (column).
void printConfusion(const std::vector<Sample>& samples, const Predictions& predictions);

/// Share of the samples whose most likely digit is the one they show.
double accuracyOf(const std::vector<Sample>& samples, const Predictions& predictions);

/// The trainer's own predictions.
Predictions trainerPredictions(const std::vector<Sample>& samples);

/// The largest difference between two probabilities at the same place.
float largestDifference(const Predictions& a, const Predictions& b);

/// Samples whose most likely digit differs.
size_t differingDigits(const Predictions& a, const Predictions& b);
