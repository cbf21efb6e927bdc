#include "samples.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, ',');) cells.push_back(cell);
    return cells;
}

Sample toSample(const std::vector<std::string>& columns, const std::vector<std::string>& cells) {
    if (cells.size() != columns.size()) throw std::runtime_error("as many cells as the header has are wanted");
    Sample sample{-1, {}, {}};
    for (size_t i = 0; i < cells.size(); ++i) {
        if (columns[i] == "label") sample.label = std::stoi(cells[i]);
        if (columns[i].rfind("pixel", 0) == 0) sample.pixels.push_back(std::stof(cells[i]));
        if (columns[i].rfind("probability", 0) == 0) sample.probabilities.push_back(std::stof(cells[i]));
    }
    return sample;
}

}  // namespace

std::vector<Sample> readSamples(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw std::runtime_error("Cannot read samples from " + path.string());
    const std::vector<std::string> columns = split(line);
    std::vector<Sample> samples;
    while (std::getline(file, line)) {
        try {
            samples.push_back(toSample(columns, split(line)));
        } catch (const std::logic_error&) {  // of stoi and stof
            throw std::runtime_error(path.string() + ": not a number in: " + line);
        }
    }
    if (samples.empty()) throw std::runtime_error(path.string() + " holds no samples");
    return samples;
}
