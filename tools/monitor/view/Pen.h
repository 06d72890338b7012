#pragma once

#include "Grid.h"

#include <string>
#include <string_view>

namespace live_view {

/// A short text in a printf format.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);

/// Writes onto a grid from left to right, and marks the values that are others than on the screen before. A value that
/// has moved because one before it has grown is found again by the words in front of it.
class Pen {
  public:
    /// \param before  the screen before; null: nothing is marked
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
        this->text(text, !before_ || stood_before(text) ? Style::plain : Style::changed);
        words_.clear();
        return *this;
    }

  private:
    bool stood_before(std::string_view text) const;

    Grid& grid_;
    const Grid* before_;
    int row_ = 0;
    int column_ = 0;
    std::string words_; // written last, if that was no value
};

} // namespace live_view
