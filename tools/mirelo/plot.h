#pragma once

#include "measurement.h"

#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// The rates of the engines as a picture in SVG: beside each other by rows of a batch and by threads, a line for each
/// engine. Measurements with a problem are left out.
std::string plot(const std::vector<Measurement>& measurements);

}  // namespace TarnoMirelo::Tool
