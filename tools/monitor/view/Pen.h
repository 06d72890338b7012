#pragma once

#include "Grid.h"

#include <string>
#include <string_view>

namespace live_view {

/// A short text in a printf format.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);

/// Writes onto a grid from left to right, and marks the values that are others than on the screen before.
class Pen {
  public:
    /// \param before  the screen before; null: nothing is marked
    Pen(Grid& grid, const Grid* before) : grid_(grid), before_(before) {}

    Pen& at(int row, int column) {
        row_ = row;
        column_ = column;
        return *this;
    }
    Pen& text(std::string_view text, Style style = Style::plain) {
        column_ = grid_.put(row_, column_, text, style);
        return *this;
    }
    Pen& value(std::string_view text) {
        const bool same = !before_ || before_->text_at(row_, column_, static_cast<int>(text.size())) == text;
        return this->text(text, same ? Style::plain : Style::changed);
    }

  private:
    Grid& grid_;
    const Grid* before_;
    int row_ = 0;
    int column_ = 0;
};

} // namespace live_view
