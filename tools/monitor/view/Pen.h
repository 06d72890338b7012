#pragma once

#include "Grid.h"

#include <string>
#include <string_view>

namespace live_view {

/// A short text in a printf format.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);

/// Writes onto a grid from left to right, and marks values that differ from the previous screen. A value that moved
/// because an earlier one grew is found by the words before it.
class Pen {
  public:
    /// \param before  the previous screen; null: nothing is marked
    Pen(Grid& grid, const Grid* before) : grid_(grid), before_(before) {}

    Pen& at(int row, int column) {
        row_ = row;
        column_ = column;
        words_.clear();
        return *this;
    }
    Pen& text(std::string_view text, Style style = Style::plain) {
        column_ = grid_.put(row_, column_, text, style);
        words_ = text;
        return *this;
    }
    Pen& value(std::string_view text) {
        this->text(text, !before_ || was_on_screen(text) ? Style::plain : Style::changed);
        words_.clear();
        return *this;
    }

  private:
    bool was_on_screen(std::string_view text) const;

    Grid& grid_;
    const Grid* before_;
    int row_ = 0;
    int column_ = 0;
    std::string words_; // the latest text, unless a value followed it
};

} // namespace live_view
