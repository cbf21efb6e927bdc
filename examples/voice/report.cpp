#include "report.h"

#include "detector.h"
#include "recording.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr double kBlockSeconds = static_cast<double>(kBlock) / kSampleRate;

// The loudest sample of a block.
float peakOf(const std::vector<float>& samples, size_t block) {
    float peak = 0;
    const size_t end = std::min((block + 1) * kBlock, samples.size());
    for (size_t i = block * kBlock; i < end; ++i) peak = std::max(peak, std::abs(samples[i]));
    return peak;
}

// A column of the drawing stands for some blocks.
struct Column {
    float peak = 0;
    float probability = 0;
    bool speech = false;
};

std::vector<Column> columnsOf(const Hearing& hearing, size_t blocksEach) {
    std::vector<Column> columns((hearing.probabilities.size() + blocksEach - 1) / blocksEach);
    for (size_t block = 0; block < hearing.probabilities.size(); ++block) {
        Column& column = columns[block / blocksEach];
        column.peak = std::max(column.peak, peakOf(hearing.samples, block));
        column.probability = std::max(column.probability, hearing.probabilities[block]);
        const double middle = (static_cast<double>(block) + 0.5) * kBlockSeconds;
        for (const Segment& segment : hearing.segments) {
            column.speech = column.speech || (segment.begin <= middle && middle < segment.end);
        }
    }
    return columns;
}

// A line of the drawing: what each column has in it, behind a name.
template <typename Symbol>
void drawLine(const char* name, const Column* begin, const Column* end, Symbol symbol) {
    std::string line;
    std::transform(begin, end, std::back_inserter(line), symbol);
    std::cout << std::setw(12) << name << " |" << line << "|\n";
}

void drawStrip(const Column* begin, const Column* end) {
    constexpr std::string_view kInk = " .:-=+*#%@";
    constexpr int kLevels = 4;
    drawLine("loudness", begin, end, [=](const Column& column) {
        // By decibels: from -50 to 0.
        const float level = std::clamp(1 + 20 * std::log10(std::max(column.peak, 1e-6F)) / 50, 0.0F, 1.0F);
        return kInk[static_cast<size_t>(std::lround(level * static_cast<float>(kInk.size() - 1)))];
    });
    for (int level = kLevels; level > 0; --level) {
        drawLine(level == kLevels ? "probability" : "", begin, end, [=](const Column& column) {
            return column.probability * kLevels >= static_cast<float>(level) - 0.5F ? '#' : ' ';
        });
    }
    drawLine("speech", begin, end, [](const Column& column) { return column.speech ? '=' : ' '; });
}

template <typename Write>
void writeFile(const std::filesystem::path& path, Write write) {
    std::ofstream file(path, std::ios::binary);  // the same bytes on every system
    file << std::fixed;
    write(file);
    if (!file.flush()) throw std::runtime_error("Cannot write " + path.string());
}

// Places of the plot, in pixels.
constexpr double kPerSecond = 60;
constexpr double kLeft = 50;
constexpr double kTop = 20;
constexpr double kHeight = 100;  // of each curve
constexpr double kGap = 20;
constexpr double kMiddle = kTop + kHeight + kGap + kHeight / 2;  // of the recording's curve
constexpr double kBottom = kMiddle + kHeight / 2;

double across(double seconds) { return kLeft + seconds * kPerSecond; }

void writeText(std::ostream& svg, double x, double y, const char* anchor, const std::string& text) {
    svg << R"(<text x=")" << x << R"(" y=")" << y << R"(" text-anchor=")" << anchor << R"(">)" << text << "</text>\n";
}

void writeAxes(std::ostream& svg, double seconds) {
    writeText(svg, kLeft - 6, kTop + 6, "end", "1");
    writeText(svg, kLeft - 6, kTop + kHeight, "end", "0");
    for (int second = 0; second <= static_cast<int>(seconds); ++second) {
        svg << R"(<path stroke="#ccc" d="M)" << across(second) << ' ' << kTop << 'V' << kBottom << "\"/>\n";
        writeText(svg, across(second), kBottom + 16, "middle", std::to_string(second) + " s");
    }
}

void writeProbability(std::ostream& svg, const std::vector<float>& probabilities) {
    svg << R"(<path fill="none" stroke="#c30" d=")";
    for (size_t block = 0; block < probabilities.size(); ++block) {
        svg << (block == 0 ? 'M' : 'L') << across((static_cast<double>(block) + 0.5) * kBlockSeconds) << ' '
            << kTop + kHeight * (1 - static_cast<double>(probabilities[block]));
    }
    svg << "\"/>\n";
}

void writeWave(std::ostream& svg, const std::vector<float>& samples, size_t blocks) {
    svg << R"(<path stroke="#246" d=")";
    for (size_t block = 0; block < blocks; ++block) {
        const double peak = kHeight / 2 * static_cast<double>(peakOf(samples, block));
        svg << 'M' << across((static_cast<double>(block) + 0.5) * kBlockSeconds) << ' ' << kMiddle - peak << 'v'
            << 2 * peak;
    }
    svg << "\"/>\n";
}

}  // namespace

void draw(const Hearing& hearing) {
    constexpr size_t kBlocksEach = 3;
    constexpr size_t kColumns = 100;
    const std::vector<Column> columns = columnsOf(hearing, kBlocksEach);
    std::cout << std::fixed << std::setprecision(1);
    for (size_t first = 0; first < columns.size(); first += kColumns) {
        const size_t last = std::min(first + kColumns, columns.size());
        std::cout << "  from " << static_cast<double>(first * kBlocksEach) * kBlockSeconds << " s to "
                  << static_cast<double>(last * kBlocksEach) * kBlockSeconds << " s\n";
        drawStrip(columns.data() + first, columns.data() + last);
    }
}

void writeText(const Hearing& hearing, const std::filesystem::path& path) {
    writeFile(path, [&](std::ostream& file) {
        file << std::setprecision(3);
        for (const Segment& segment : hearing.segments) file << segment.begin << '\t' << segment.end << "\tspeech\n";
    });
}

void writeJson(const Hearing& hearing, const std::filesystem::path& path) {
    writeFile(path, [&](std::ostream& file) {
        file << std::setprecision(3) << "{\n  \"segments\": [";
        const char* separator = "\n";
        for (const Segment& segment : hearing.segments) {
            file << separator << R"(    {"begin": )" << segment.begin << R"(, "end": )" << segment.end << "}";
            separator = ",\n";
        }
        file << "\n  ],\n  \"secondsPerBlock\": " << kBlockSeconds << ",\n  \"probabilities\": ["
             << std::setprecision(6);
        separator = "\n";
        for (const float probability : hearing.probabilities) {
            file << separator << "    " << probability;
            separator = ",\n";
        }
        file << "\n  ]\n}\n";
    });
}

void writeSvg(const Hearing& hearing, const std::filesystem::path& path) {
    const double seconds = static_cast<double>(hearing.samples.size()) / kSampleRate;
    writeFile(path, [&](std::ostream& svg) {
        svg << std::setprecision(1) << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << across(seconds) + kLeft
            << R"(" height=")" << kBottom + 26 << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
            << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
        for (const Segment& segment : hearing.segments) {
            svg << R"(<rect fill="#cfe8cf" x=")" << across(segment.begin) << R"(" y=")" << kTop << R"(" width=")"
                << (segment.end - segment.begin) * kPerSecond << R"(" height=")" << kBottom - kTop << "\"/>\n";
        }
        writeAxes(svg, seconds);
        writeProbability(svg, hearing.probabilities);
        writeWave(svg, hearing.samples, hearing.probabilities.size());
        svg << "</svg>\n";
    });
}
