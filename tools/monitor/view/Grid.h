#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace live_view {

/// What a character is to its reader; the terminal decides how that looks.
enum class Style : unsigned char {
    plain,
    changed, ///< a value that was another one before
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

/// A rectangle of a larger one, in cells.
struct Area {
    int row, column, rows, columns;
};

/// A screenful of characters, all of them printable ASCII.
class Grid {
  public:
    /// Blank. Less than nothing is nothing.
    Grid(int rows, int columns);

    int rows() const { return rows_; }
    int columns() const { return columns_; }
    /// A cell that is there; a blank one where there is none.
    Cell at(int row, int column) const;

    /// Writes a text into a row; what lies outside is left out. \return the column behind the text
    int put(int row, int column, std::string_view text, Style style = Style::plain);

    /// Without the blanks at its end.
    std::string row(int row) const;
    /// `columns` characters from `column` on, blanks where there is nothing.
    std::string text_at(int row, int column, int columns) const;

  private:
    bool has(int row, int column) const { return row >= 0 && row < rows_ && column >= 0 && column < columns_; }
    std::size_t index(int row, int column) const { return static_cast<std::size_t>(row * columns_ + column); }

    int rows_;
    int columns_;
    std::vector<Cell> cells_;
};

/// About how many bytes it takes to turn one screen into another on a terminal that only gets what differs. A whole
/// screen when their sizes differ.
unsigned update_cost(const Grid& before, const Grid& after);

} // namespace live_view
