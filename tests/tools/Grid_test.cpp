#include <monitor/view/Grid.h>
#include <monitor/view/Pen.h>

#include <support/builders/Random.h>

namespace {

using live_view::Grid;
using live_view::Pen;
using live_view::Style;
using live_view::update_cost;

} // namespace

TEST(Grid, is_blank_at_first) {
    const Grid grid(2, 3);
    EXPECT_EQ(grid.row(0), "");
    EXPECT_EQ(grid.text_at(1, 0, 3), "   ");
    EXPECT_EQ(Grid(-1, -5).rows(), 0);
}

TEST(Grid, ignores_text_outside) {
    Grid grid(2, 5);
    EXPECT_EQ(grid.put(0, 3, "abc"), 6);
    EXPECT_EQ(grid.put(1, -2, "abc"), 1);
    grid.put(2, 0, "x");
    grid.put(-1, 0, "x");
    EXPECT_EQ(grid.row(0), "   ab");
    EXPECT_EQ(grid.row(1), "c");
}

TEST(Grid, contains_no_control_characters) {
    Grid grid(1, 4);
    grid.put(0, 0, "\x1b\x7f\x80\n");
    EXPECT_EQ(grid.row(0), "....");
}

TEST(Grid, update_without_a_difference_costs_nothing) {
    Grid grid(24, 80);
    grid.put(3, 4, "text", Style::bad);
    EXPECT_EQ(update_cost(grid, grid), 0U);
}

TEST(Grid, update_costs_at_least_the_differing_cells) {
    Random random;
    for (int round = 0; round < 200; ++round) {
        Grid before(24, 80);
        Grid after(24, 80);
        unsigned different = 0;
        for (int i = 0; i < 50; ++i)
            after.put(static_cast<int>(random.between(0, 23)), static_cast<int>(random.between(0, 79)), "x",
                      static_cast<Style>(random.between(0, 6)));
        for (int row = 0; row < 24; ++row)
            for (int column = 0; column < 80; ++column)
                different += before.at(row, column) != after.at(row, column);
        EXPECT_GE(update_cost(before, after), different);
        EXPECT_LE(update_cost(before, after), 21 * different + 20);
    }
}

TEST(Grid, another_size_costs_a_whole_screen) {
    Grid grid(24, 80);
    for (int row = 0; row < 24; ++row)
        grid.put(row, 0, std::string(80, 'x'));
    EXPECT_GE(update_cost(Grid(24, 81), grid), 24U * 80U);
    EXPECT_GT(update_cost(Grid(0, 0), Grid(24, 80)), 0U);
}

TEST(Pen, marks_values_that_differ_from_the_previous_screen) {
    Grid before(1, 20);
    Pen(before, nullptr).text("N ").value("123").text(" ").value("7");
    Grid after(1, 20);
    Pen(after, &before).text("N ").value("124").text(" ").value("7");
    EXPECT_EQ(after.row(0), "N 124 7");
    EXPECT_EQ(after.at(0, 0).style, Style::plain);
    EXPECT_EQ(after.at(0, 2).style, Style::changed); // the whole value
    EXPECT_EQ(after.at(0, 4).style, Style::changed);
    EXPECT_EQ(after.at(0, 6).style, Style::plain);
}

TEST(Pen, marks_nothing_without_a_previous_screen) {
    Grid grid(1, 20);
    Pen(grid, nullptr).value("123");
    EXPECT_EQ(grid.at(0, 0).style, Style::plain);
}
