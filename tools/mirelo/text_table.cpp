#include "text_table.h"

#include "failure.h"

#include <algorithm>
#include <utility>

namespace TarnoMirelo::Tool {
namespace {

// Characters of a text in UTF-8: every byte but those that continue one.
size_t widthOf(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

}  // namespace

TextTable::TextTable(std::string indent, std::vector<Align> alignment)
    : indent_(std::move(indent)), alignment_(std::move(alignment)) {}

void TextTable::addRow(std::vector<std::string> cells) {
    for (std::string& cell : cells) cell = printable(cell);
    rows_.push_back(std::move(cells));
}

std::string TextTable::text() const {
    std::vector<size_t> widths;
    for (const std::vector<std::string>& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    std::string text;
    for (const std::vector<std::string>& row : rows_) {
        std::string line = indent_;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - widthOf(row[i]), ' ');
            const bool right = i < alignment_.size() && alignment_[i] == Align::Right;
            line += (i == 0 ? "" : "  ") + (right ? padding + row[i] : row[i] + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace TarnoMirelo::Tool
