#include "Grid.h"

#include <algorithm>

namespace live_view {

namespace {

// Costs on common terminals, in bytes
constexpr unsigned cursor_move = 8;
constexpr unsigned style_switch = 12;
constexpr unsigned whole_update = 20; // hide the cursor, reset styles and the like
constexpr int small_gap = 4;          // up to this, unchanged cells are written again instead of a cursor move

} // namespace

Grid::Grid(int rows, int columns) : rows_(std::max(rows, 0)), columns_(std::max(columns, 0)), cells_(index(rows_, 0)) {}

Cell Grid::at(int row, int column) const {
    return has(row, column) ? cells_[index(row, column)] : Cell();
}

int Grid::put(int row, int column, std::string_view text, Style style) {
    for (const char c : text) {
        if (has(row, column))
            cells_[index(row, column)] = {c >= 0x20 && c <= 0x7E ? c : '.', style};
        ++column;
    }
    return column;
}

std::string Grid::text_at(int row, int column, int columns) const {
    std::string text;
    for (int i = 0; i < columns; ++i)
        text += at(row, column + i).character;
    return text;
}

std::string Grid::row(int row) const {
    std::string text = text_at(row, 0, columns_);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

unsigned update_cost(const Grid& before, const Grid& after) {
    const bool all = before.rows() != after.rows() || before.columns() != after.columns();
    unsigned cost = 0;
    Style style = Style::plain;
    for (int row = 0; row < after.rows(); ++row) {
        int cursor = -1 - small_gap; // the terminal's column; out of reach on a new row
        for (int column = 0; column < after.columns(); ++column) {
            const Cell cell = after.at(row, column);
            if (cell == (all ? Cell() : before.at(row, column)))
                continue;
            const int gap = column - cursor;
            cost += gap <= small_gap ? static_cast<unsigned>(gap) : cursor_move;
            if (cell.style != style)
                cost += style_switch;
            style = cell.style;
            ++cost;
            cursor = column + 1;
        }
    }
    return cost > 0 || all ? cost + whole_update : 0;
}

} // namespace live_view
