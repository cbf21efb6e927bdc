#pragma once

#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// Lines whose cells stand below each other.
class TextTable {
 public:
    enum class Align { Left, Right };

    /// @param alignment  of the columns; further ones are to the left
    explicit TextTable(std::string indent = "", std::vector<Align> alignment = {});

    /// @param cells  become `printable`
    void addRow(std::vector<std::string> cells);
    bool empty() const { return rows_.empty(); }
    /// The lines, each with a line feed and without spaces at its end. Columns are two spaces apart.
    std::string text() const;

 private:
    std::string indent_;
    std::vector<Align> alignment_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace TarnoMirelo::Tool
