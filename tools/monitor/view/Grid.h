#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace live_view {

/// The meaning of a character's style; the terminal decides how it looks.
enum class Style : unsigned char {
    plain,
    changed, ///< a value that differs from the previous screen
    title,
    heading,
    good,
    doubtful,
    bad
};

struct Cell {
    char character = ' ';
    Style style = Style::plain;

    bool operator==(const Cell& other) const { return character == other.character && style == other.style; }
    bool operator!=(const Cell& other) const { return !(*this == other); }
};

/// A rectangle of a grid, in cells.
struct Area {
    int row, column, rows, columns;
};

/// A screenful of characters, all of them printable ASCII.
class Grid {
  public:
    /// Blank. A negative size counts as 0.
    Grid(int rows, int columns);

    int rows() const { return rows_; }
    int columns() const { return columns_; }
    /// The cell; a blank one outside the grid.
    Cell at(int row, int column) const;

    /// Writes a text into a row; characters outside the grid are dropped. \return the column after the text
    int put(int row, int column, std::string_view text, Style style = Style::plain);

    /// The row's characters without blanks at the end.
    std::string row(int row) const;
    /// `columns` characters from `column` on; blanks outside the grid.
    std::string text_at(int row, int column, int columns) const;

  private:
    bool has(int row, int column) const { return row >= 0 && row < rows_ && column >= 0 && column < columns_; }
    std::size_t index(int row, int column) const { return static_cast<std::size_t>(row * columns_ + column); }

    int rows_;
    int columns_;
    std::vector<Cell> cells_;
};

/// Estimates how many bytes turn one screen into another when only the differing cells are sent. When the sizes differ,
/// the whole screen is sent.
unsigned update_cost(const Grid& before, const Grid& after);

} // namespace live_view
