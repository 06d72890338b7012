// The live view's screen, as text.

#include "model_input.h"
#include "simulated_epochs.h"

#include <monitor/view/View_layout.h>
#include <monitor/view/plots.h>

#include <support/builders/Frame_builder.h>

#include <cmath>
#include <cstring>

namespace {

using namespace live_view;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int rows = View_layout::least_rows;
constexpr int columns = View_layout::least_columns;

std::string text_of(const Grid& grid) {
    std::string text;
    for (int row = 0; row < grid.rows(); ++row)
        text += grid.row(row) + '\n';
    return text;
}

/// A model and the screen that shows it.
struct Shown_model : Fed_model {
    Grid grid(int with_rows = rows, int with_columns = columns, const Grid* before = nullptr) const {
        return View_layout::lay_out(model, state, with_rows, with_columns, now, before);
    }
    /// The text after a label.
    std::string after(const std::string& label) const { return after(label, grid()); }
    static std::string after(const std::string& label, const Grid& grid) {
        for (int row = 0; row < grid.rows(); ++row)
            if (grid.row(row).rfind(label + ' ', 0) == 0)
                return grid.row(row).substr(12);
        ADD_FAILURE() << "no " << label << " in\n" << text_of(grid);
        return {};
    }
    void feed_epochs(int count) {
        for (int i = 0; i < count; ++i) {
            feed(last_epoch = receiver.next_bytes());
            now = now + 100;
        }
    }

    View_state state;
    Received_epochs receiver;
    std::string last_epoch;
};

void set_path(logging_source_status& log, const char* path) {
    std::strcpy(log.path, path);
}

} // namespace

TEST(View_layout, fills_the_screen_and_not_more) {
    Shown_model shown;
    shown.feed_epochs(30);
    for (const auto& [height, width] :
         {std::pair(24, 80), {25, 81}, {30, 100}, {40, 120}, {60, 200}, {24, 300}, {100, 80}}) {
        const Grid grid = shown.grid(height, width);
        EXPECT_EQ(grid.rows(), height);
        EXPECT_EQ(grid.columns(), width);
        EXPECT_THAT(grid.row(0), StartsWith(" receiver_monitor"));
        EXPECT_THAT(grid.row(height - 1), HasSubstr("q quit"));
        for (const char* label : {"Link", "Bytes", "Position", "Scatter", "DOP", "Automation", "Log", "Reply", "Last"})
            EXPECT_NE(Shown_model::after(label, grid), "");
    }
}

TEST(View_layout, small_window_shows_the_needed_size) {
    Shown_model shown;
    for (const auto& [height, width] : {std::pair(23, 80), {24, 79}, {3, 40}}) {
        const Grid grid = shown.grid(height, width);
        EXPECT_EQ(grid.row(1), "Too small: " + std::to_string(width) + " x " + std::to_string(height) + ".");
        EXPECT_EQ(grid.row(2), "80 x 24 are needed.");
        EXPECT_THAT(text_of(grid), Not(HasSubstr("Link")));
    }
    shown.grid(0, 0);
    shown.grid(1, 1);
}

TEST(View_layout, shows_the_state_of_the_link) {
    Shown_model shown;
    EXPECT_THAT(shown.after("Link"), StartsWith("waiting for the first byte"));
    shown.feed("x");
    EXPECT_THAT(shown.after("Link"), StartsWith("receiving bytes, no good frame yet"));
    for (int i = 0; i < 40; ++i) {
        shown.feed("rubbish");
        shown.now = shown.now + 100;
    }
    EXPECT_THAT(shown.after("Link"), StartsWith("receiving only rubbish: wrong baud rate?"));
    shown.now = shown.now + 5000;
    EXPECT_THAT(shown.after("Link"), StartsWith("silent for 5 s, nothing good before"));
    shown.model.take_sentence("$GPGGA,*00", shown.now);
    shown.feed("\n");
    EXPECT_THAT(shown.after("Link"), StartsWith("receiving NMEA sentences, but no frames"));
    shown.feed_epochs(1);
    EXPECT_THAT(shown.after("Link"), StartsWith("receiving good frames"));
    shown.now = shown.now + 12300;
    EXPECT_THAT(shown.after("Link"), StartsWith("silent for 12 s after good traffic"));
    shown.model.take_end();
    EXPECT_THAT(shown.after("Link"), StartsWith("ended: no more bytes will follow"));
}

TEST(View_layout, shows_rates_and_the_account_of_bytes) {
    Shown_model shown;
    EXPECT_THAT(shown.after("Link"), HasSubstr("      - B/s       - frames/s"));
    const std::string frame = build_frame("||", "");
    for (int i = 0; i < 120; ++i) {
        shown.feed(frame);
        shown.now = shown.now + 100;
    }
    shown.feed("noise\n" + reply_text("RE", "{ok}"));
    EXPECT_THAT(shown.after("Link"), HasSubstr("     70 B/s    10.0 frames/s"));
    EXPECT_EQ(shown.after("Bytes"), "857 = frames 840 + replies 11 + noise 6 + waiting 0  bad 0");
    shown.feed(frame.substr(0, 6));
    EXPECT_EQ(shown.after("Bytes"), "863 = frames 840 + replies 11 + noise 6 + waiting 6  bad 0");
}

TEST(View_layout, lists_messages_with_count_and_rate) {
    Shown_model shown;
    shown.feed_epochs(120);
    const std::string screen = text_of(shown.grid());
    EXPECT_THAT(screen, HasSubstr("\n~~    120 10.0 NN    120 10.0"));
    EXPECT_THAT(screen, HasSubstr("\nPG    120 10.0"));
}

TEST(View_layout, marks_changed_values) {
    Shown_model shown;
    shown.feed(build_frame("||", "") + build_frame("~~", "abcd"));
    const Grid before = shown.grid();
    shown.feed(build_frame("||", ""));
    const Grid after = shown.grid(rows, columns, &before);
    EXPECT_EQ(after.text_at(4, 0, 9), "||      2");
    EXPECT_EQ(after.at(4, 8).style, Style::changed);
    EXPECT_EQ(after.text_at(5, 0, 9), "~~      1");
    EXPECT_EQ(after.at(5, 8).style, Style::plain);
    EXPECT_EQ(shown.grid(rows, columns, &after).at(4, 8).style, Style::plain);
}

TEST(View_layout, does_not_mark_values_that_only_moved) {
    Shown_model shown;
    shown.feed(build_frame("||", "ab"));
    const Grid before = shown.grid();
    ASSERT_EQ(Shown_model::after("Bytes", before), "9 = frames 9 + replies 0 + noise 0 + waiting 0  bad 0");
    shown.feed(build_frame("||", "ab"));
    const Grid after = shown.grid(rows, columns, &before);
    ASSERT_EQ(Shown_model::after("Bytes", after), "18 = frames 18 + replies 0 + noise 0 + waiting 0  bad 0");
    std::string marked;
    for (int column = 0; column < columns; ++column)
        if (after.at(2, column).style == Style::changed)
            marked += after.at(2, column).character;
    EXPECT_EQ(marked, "1818");
}

TEST(View_layout, shows_how_many_messages_do_not_fit) {
    Shown_model shown;
    for (char second = 'A'; second <= 'Z'; ++second)
        shown.feed(build_frame(std::string("X") + second, "x"));
    const Grid grid = shown.grid();
    EXPECT_THAT(grid.row(4), StartsWith("XA      1    - XL      1"));
    EXPECT_THAT(grid.row(13), StartsWith("XJ      1    - XU      1"));
    EXPECT_EQ(grid.text_at(14, 15, 10), "and 5 more");
    EXPECT_THAT(text_of(shown.grid(40, 120)), HasSubstr("XZ      1"));
}

TEST(View_layout, shows_the_receivers_position_dilution_and_satellites) {
    Shown_model shown;
    shown.feed_epochs(50);
    Simulated_epoch epoch(shown.last_epoch);
    const auto pg = epoch.get<GNSS_messages::Msg_PG>();
    EXPECT_EQ(shown.after("Position"),
              formatted("lat %11.7f lon %12.7f deg  hgt %.3f +- %.3f m  type %d", pg.get_lat_deg(), pg.get_lon_deg(),
                        pg.get_hgt(), static_cast<double>(pg.get_sigma()), pg.get_type()));
    const auto dp = epoch.get<GNSS_messages::Msg_DP>();
    const auto ps = epoch.get<GNSS_messages::Msg_PS>();
    EXPECT_EQ(shown.after("DOP"), formatted("H %.2f  V %.2f  T %.2f  P %.2f  G %.2f   satellites %d used of %d",
                                            static_cast<double>(dp.get_hdop()), static_cast<double>(dp.get_vdop()),
                                            static_cast<double>(dp.get_tdop()), static_cast<double>(dp.get_pdop()),
                                            static_cast<double>(dp.get_gdop()), ps.get_used(0) + ps.get_used(1),
                                            ps.get_locked(0) + ps.get_locked(1)));
    const Position_scatter::Spread spread = shown.model.scatter().spread();
    EXPECT_GT(spread.reach, 1); // the machine drives
    EXPECT_EQ(shown.after("Scatter"), formatted("N %.3f  E %.3f  U %.3f m sigma, within %.3f m, 50 positions",
                                                spread.sigma.north, spread.sigma.east, spread.sigma.up, spread.reach));
}

TEST(View_layout, wide_screens_have_a_plot_of_positions) {
    Shown_model shown;
    shown.feed_epochs(50);
    EXPECT_THAT(text_of(shown.grid()), Not(HasSubstr("@")));
    EXPECT_THAT(text_of(shown.grid(24, 110)), HasSubstr("@"));
    EXPECT_THAT(shown.grid(24, 110).row(3), HasSubstr("Scatter, 1 m/column"));
}

TEST(View_layout, shows_the_automations_state) {
    Shown_model shown;
    EXPECT_EQ(shown.after("Automation"), "nothing yet");
    shown.feed(automation_status(TIM_messages::automation_active, 200, true, -0.125F));
    EXPECT_EQ(shown.after("Automation"), "AUTOMATION_ACTIVE  heartbeat 200  product 1  curvature -0.12500");
    shown.feed(automation_status(7, 201, false, 0));
    EXPECT_EQ(shown.after("Automation"), "UNKNOWN  heartbeat 201  product 0  curvature 0.00000");
}

TEST(View_layout, shows_replies_and_the_meaning_of_errors) {
    Shown_model shown;
    shown.feed(reply_text("RE", "{receiver}"));
    EXPECT_EQ(shown.after("Replies"), "RE00B{receiver}");
    shown.feed(reply_text("ER", "{5,value out of range}"));
    EXPECT_EQ(shown.after("Replies"), "ER017{5,value out of range}  error 5: value out of range");
    shown.feed(reply_text("ER", "{77,what}"));
    EXPECT_EQ(shown.after("Replies"), "ER00A{77,what}  unknown error");
    const std::string larger = text_of(shown.grid(40, 80));
    EXPECT_LT(larger.find("RE00B"), larger.find("ER017"));
    EXPECT_LT(larger.find("ER017"), larger.find("ER00A"));
}

TEST(View_layout, shows_the_log) {
    Shown_model shown;
    EXPECT_EQ(shown.after("Log"), "none; --log DIR records one");
    shown.state.log.enabled = true;
    shown.state.log.history_bytes = 17;
    EXPECT_EQ(shown.after("Log"), "no file; 17 bytes of history in memory");
    set_path(shown.state.log, "/data/receiver.log");
    shown.state.log.file_bytes = 12345;
    EXPECT_EQ(shown.after("Log"), "12345 bytes in /data/receiver.log");
    shown.state.log.dropped = 3;
    EXPECT_EQ(shown.after("Log"), "12345 bytes in /data/receiver.log dropped 3");
    shown.state.log.enabled = false;
    EXPECT_EQ(shown.after("Log"), "off: 12345 bytes in /data/receiver.log dropped 3");
}

TEST(View_layout, shows_the_latest_messages_in_the_chosen_form) {
    Shown_model shown;
    shown.feed(build_frame("~~", le(std::uint32_t{1})) + build_frame("~~", le(std::uint32_t{2})));
    EXPECT_EQ(shown.after("Last"), "RT ms=1");
    EXPECT_EQ(shown.grid().row(22), "            RT ms=2");
    shown.state.labelled = false;
    EXPECT_EQ(shown.after("Last,comma"), "RT,1");
}

TEST(View_layout, has_help_a_pause_mark_and_notes) {
    Shown_model shown;
    shown.state.source = "tcp:4001";
    EXPECT_EQ(shown.grid().row(0), " receiver_monitor  tcp:4001");
    shown.state.paused = true;
    EXPECT_THAT(shown.grid().row(0), testing::EndsWith("PAUSED"));
    shown.state.note = "UNKNOWN XY";
    EXPECT_EQ(shown.grid().row(rows - 1), " UNKNOWN XY" + std::string(62, ' ') + "h help");
    shown.state.note.assign(200, 'x');
    EXPECT_EQ(shown.grid().row(rows - 1), ' ' + std::string(69, 'x') + "   h help");
    shown.state.help = true;
    const std::string help = text_of(shown.grid());
    for (const char* key :
         {"q      quit", "space  pause", "l      switch", "c      clear", "f      form", "h, ?   this"})
        EXPECT_THAT(help, HasSubstr(key));
    EXPECT_THAT(help, HasSubstr("Bold values have changed")); // its last line
    for (int row = 1; row < rows - 1; ++row)
        EXPECT_EQ(shown.grid().at(row, columns - 1), Cell()) << "may be cut: " << shown.grid().row(row);
    EXPECT_THAT(help, Not(HasSubstr("Position")));
}

TEST(Pen, finds_a_moved_value_by_real_words_only) {
    Grid before(1, 40);
    Pen(before, nullptr).at(0, 0).text("a ").value("1").text(" a ").value("2").text(" of ").value("3");
    Grid after(1, 40);
    Pen(after, &before).at(0, 0).text("a ").value("2").text(" and of ").text(" of ").value("3");
    EXPECT_EQ(after.at(0, 2).style, Style::changed); // the other "a 2" belongs to other words
    EXPECT_EQ(after.row(0), "a 2 and of  of 3");
    EXPECT_EQ(after.at(0, 15).style, Style::plain);
}

// ---- Pictures ----

TEST(draw_sky, puts_satellites_at_their_places) {
    Grid grid(11, 23);
    Pen pen(grid, nullptr);
    draw_sky(pen, {0, 0, 11, 23},
             {{1, 90, 0, 50, 0}, {2, 0, 0, 40, 0}, {3, 0, 90, 30, 0}, {4, 0, 180, {}, {}}, {5, 45, 270, 50, 0}});
    EXPECT_EQ(grid.text_at(5, 11, 2), "01");
    EXPECT_EQ(grid.at(5, 11).style, Style::good);
    EXPECT_EQ(grid.text_at(0, 11, 2), "02");
    EXPECT_EQ(grid.at(0, 11).style, Style::doubtful);
    EXPECT_EQ(grid.text_at(5, 21, 2), "03");
    EXPECT_EQ(grid.at(5, 21).style, Style::bad);
    EXPECT_EQ(grid.text_at(10, 11, 2), "04");
    EXPECT_EQ(grid.at(10, 11).style, Style::plain);
    EXPECT_EQ(grid.text_at(5, 6, 2), "05");
}

TEST(draw_sky, shows_the_strongest_of_several_in_one_place) {
    const Satellite weak{1, 90, 0, 30, 0};
    const Satellite strong{2, 90, 0, 50, 0};
    for (const auto& both : {std::vector{weak, strong}, std::vector{strong, weak}}) {
        Grid grid(11, 23);
        Pen pen(grid, nullptr);
        draw_sky(pen, {0, 0, 11, 23}, both);
        EXPECT_EQ(grid.text_at(5, 11, 2), "02");
    }
}

TEST(draw_sky, stays_in_its_area_for_any_values) {
    Grid grid(30, 60);
    Pen pen(grid, nullptr);
    draw_sky(pen, {5, 10, 11, 23}, {{255, -128, 510, 255, 255}, {0, 127, 0, 0, 0}, {1, -90, 45, 0, 0}});
    for (int row = 0; row < 30; ++row)
        for (int column = 0; column < 60; ++column)
            if (row < 5 || row >= 16 || column < 10 || column >= 33) {
                EXPECT_EQ(grid.at(row, column), Cell()) << row << ' ' << column;
            }
}

TEST(draw_satellites, lists_them_and_how_many_do_not_fit) {
    std::vector<Satellite> satellites;
    for (int i = 1; i <= 5; ++i)
        satellites.push_back({i, 10 * i, 100 + i, 40 + i, i == 2 ? 1 : 0});
    satellites[2].strength.reset();
    Grid grid(3, 40);
    Pen pen(grid, nullptr);
    draw_satellites(pen, {0, 0, 3, satellite_table_columns}, satellites);
    EXPECT_EQ(grid.row(0), " 1 10 101 41   4 40 104 44");
    EXPECT_EQ(grid.row(1), " 2 20 102 42-  5 50 105 45");
    EXPECT_EQ(grid.row(2), " 3 30 103  -");
    Grid small(2, 40);
    Pen small_pen(small, nullptr);
    draw_satellites(small_pen, {0, 0, 2, satellite_table_columns}, satellites);
    EXPECT_EQ(small.row(1), " 2 20 102 42- and 2 more");
}

TEST(draw_scatter, scales_to_round_metres_and_stays_in_its_area) {
    constexpr double metre = 1 / 6378137.0; // radians along the equator
    for (const double reach : {0.001, 0.5, 3.0, 70.0, 20000.0}) {
        Position_scatter scatter;
        for (const double east : {-1.0, 1.0})
            scatter.add(0, east * reach * metre, 0, Atime());
        Grid grid(20, 40);
        Pen pen(grid, nullptr);
        const double scale = draw_scatter(pen, {4, 10, 11, 23}, scatter);
        EXPECT_GE(scale, reach / 10 * 0.999);
        EXPECT_LE(scale, std::max(0.001, reach / 10 * 2.6));
        EXPECT_EQ(grid.at(9, 21).character, '+');
        const int offset = static_cast<int>(std::lround(reach / scale));
        EXPECT_EQ(grid.at(9, 21 + offset).character, '@') << reach << ' ' << scale;
        EXPECT_EQ(grid.at(9, 21 - offset).character, '*');
    }
}
