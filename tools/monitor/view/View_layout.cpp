#include "View_layout.h"

#include "plots.h"

#include <glue/vesk/TIM_messages.h>
#include <glue/vesk/Vesk_error_decoder.h>

#include <algorithm>
#include <cinttypes>

namespace live_view {

namespace {

constexpr int label_columns = 12;
constexpr int first_picture_row = 4;
constexpr int least_picture_rows = 11;
constexpr int most_picture_rows = 21;
constexpr int least_scatter_columns = 21;

constexpr const char* keys_line = " q quit   space pause   l log   c clear   f form   h help";

constexpr std::string_view keys_beside_note = "   h help ";

constexpr const char* help_lines[] = {
    "q      quit",
    "space  pause: freezes the screen, counting continues; again: continue",
    "l      switch the log of the receiver's traffic on or off",
    "c      clear: counts, rates, scatter and the last messages start again",
    "f      form of the last messages: labelled for people, comma for files",
    "h, ?   this page, and back; Ctrl-L redraws the screen",
    "",
    "Link         waiting, receiving good frames, only NMEA sentences or rubbish",
    "             (most often a wrong baud rate), silent or ended",
    "Bytes        by kind: frames, replies, acknowledgements, noise;",
    "             'bad' are frames with a bad checksum",
    "id           of each message: count, and messages a second over the last ten;",
    "             $G are NMEA sentences",
    "Sky          satellites by their number: zenith in the middle, north up",
    "sv           satellite: elevation and azimuth in degrees, signal in dB-Hz;",
    "             '-': not used for the position",
    "Scatter      of the last minute's positions around their mean, to north, east",
    "             and up; m/column: metres per column of the plot",
    "Last         the latest messages",
    "",
    "Bold values have changed since the previous update of the screen.",
};

class Layout {
  public:
    Layout(const Link_model& model, const View_state& state, Atime now, const Grid* before, Grid& grid)
        : model_(model), state_(state), now_(now), grid_(grid), pen_(grid, before) {}

    void draw() {
        title();
        if (grid_.rows() < View_layout::least_rows || grid_.columns() < View_layout::least_columns)
            return too_small();
        if (state_.help)
            return help();
        link();
        bytes();
        int row = pictures();
        position(row++);
        scatter(row++);
        dilution(row++);
        automation(row++);
        log(row++);
        const int spare = grid_.rows() - 1 - row;
        const int replies = std::max(1, spare / 3);
        row = this->replies(row, replies);
        last(row, spare - replies);
        last_line(state_.note.empty() ? keys_line : note_line());
    }

  private:
    Pen& line(int row, std::string_view label) {
        return pen_.at(row, 0).text(label, Style::heading).at(row, label_columns);
    }
    void last_line(std::string text) {
        text.resize(static_cast<std::size_t>(grid_.columns()), ' ');
        pen_.at(grid_.rows() - 1, 0).text(text, Style::title);
    }

    std::string note_line() const {
        std::string text = " " + state_.note;
        text.resize(static_cast<std::size_t>(grid_.columns()) - keys_beside_note.size(), ' ');
        return text.append(keys_beside_note);
    }

    void title() {
        std::string text = " receiver_monitor  " + state_.source;
        const std::string paused = state_.paused ? "  PAUSED " : " ";
        const auto width = static_cast<std::size_t>(grid_.columns());
        text.resize(width > paused.size() ? width - paused.size() : 0, ' ');
        pen_.at(0, 0).text(text + paused, Style::title);
    }

    void too_small() {
        pen_.at(1, 0).text(formatted("Too small: %d x %d.", grid_.columns(), grid_.rows()), Style::bad);
        pen_.at(2, 0).text(formatted("%d x %d are needed.", View_layout::least_columns, View_layout::least_rows));
    }

    void help() {
        int row = 2;
        for (const char* text : help_lines)
            pen_.at(row++, 2).text(text);
        last_line(" q quit   h back");
    }

    void link() {
        Pen& pen = line(1, "Link");
        const Link_condition& condition = model_.condition();
        const auto seconds = static_cast<int>(std::min<std::int64_t>(condition.quiet_for(now_) / 1000, 9999999));
        switch (condition.state(now_)) {
        case Link_state::waiting:
            pen.text("waiting for the first byte", Style::doubtful);
            break;
        case Link_state::looking:
            pen.text("receiving bytes, no good frame yet", Style::doubtful);
            break;
        case Link_state::good:
            pen.text("receiving good frames", Style::good);
            break;
        case Link_state::sentences:
            pen.text("receiving NMEA sentences, but no frames", Style::doubtful);
            break;
        case Link_state::rubbish:
            pen.text("receiving only rubbish: wrong baud rate?", Style::bad);
            break;
        case Link_state::silent:
            pen.text(formatted(condition.has_been_good() ? "silent for %d s after good traffic"
                                                         : "silent for %d s, nothing good before",
                               seconds),
                     Style::bad);
            break;
        case Link_state::ended:
            pen.text("ended: no more bytes will follow", Style::doubtful);
            break;
        }
        pen.at(1, 52).value(rate("%7.0f", model_.byte_rate())).text(" B/s ");
        pen.value(rate("%7.1f", model_.frame_rate())).text(" frames/s");
    }

    template <std::size_t size>
    std::string rate(const char (&format)[size], const Rate_meter& meter) {
        const auto per_second = meter.per_second(now_);
        return per_second ? formatted(format, *per_second) : "      -";
    }

    void bytes() {
        const Vesk_parser::Byte_counts account = model_.account();
        Pen& pen = line(2, "Bytes");
        pen.value(std::to_string(model_.arrived()));
        pen.text(" = frames ").value(std::to_string(account.frames));
        pen.text(" + replies ").value(std::to_string(account.replies + account.acknowledgements));
        pen.text(" + noise ").value(std::to_string(account.noise + account.separators));
        const std::uint64_t accounted = account.total();
        pen.text(" + waiting ").value(std::to_string(model_.arrived() - std::min(accounted, model_.arrived())));
        pen.text("  bad ").value(std::to_string(model_.checksum_failures()));
    }

    /// The tables and plots. \return the row below them
    int pictures() {
        const int columns_for_sky = grid_.columns() - message_table_columns - satellite_table_columns - 1;
        int rows = std::min(least_picture_rows + (grid_.rows() - View_layout::least_rows) / 2, most_picture_rows);
        rows = std::min(rows, (columns_for_sky - 1) / 2);
        rows -= 1 - rows % 2; // the zenith has a row of its own
        const int heading = first_picture_row - 1;
        Area area{first_picture_row, 0, rows, message_table_columns};

        pen_.at(heading, 0).text("id  count   /s id  count   /s", Style::heading);
        draw_messages(pen_, area, model_, now_);

        area.column += area.columns; // the sky's first column is blank
        area.columns = 2 * rows + 1;
        pen_.at(heading, area.column + rows - 1).text("Sky", Style::heading);
        draw_sky(pen_, area, model_.satellites());

        area.column += area.columns + 1;
        area.columns = satellite_table_columns;
        pen_.at(heading, area.column).text("sv el  az dB  sv el  az dB", Style::heading);
        draw_satellites(pen_, area, model_.satellites());

        area.column += area.columns + 1;
        area.columns = std::min(grid_.columns() - area.column, 2 * rows + 1);
        if (area.columns >= least_scatter_columns) {
            const double scale = draw_scatter(pen_, area, model_.scatter());
            pen_.at(heading, area.column)
                .text(scale > 0 ? formatted("Scatter, %g m/column", scale) : "Scatter", Style::heading);
        }
        return first_picture_row + rows;
    }

    void position(int row) {
        Pen& pen = line(row, "Position");
        const auto& position = model_.position();
        if (!position)
            return nothing_yet();
        pen.text("lat ").value(formatted("%11.7f", position->latitude));
        pen.text(" lon ").value(formatted("%12.7f", position->longitude));
        pen.text(" deg  hgt ").value(formatted("%.3f", position->height));
        pen.text(" +- ").value(formatted("%.3f", static_cast<double>(position->sigma))).text(" m");
        pen.text("  type ").value(std::to_string(position->type));
    }

    void scatter(int row) {
        Pen& pen = line(row, "Scatter");
        const Position_scatter::Spread spread = model_.scatter().spread();
        if (spread.positions == 0)
            return nothing_yet();
        pen.text("N ").value(formatted("%.3f", spread.sigma.north));
        pen.text("  E ").value(formatted("%.3f", spread.sigma.east));
        pen.text("  U ").value(formatted("%.3f", spread.sigma.up));
        pen.text(" m sigma, within ").value(formatted("%.3f", spread.reach));
        pen.text(" m, ").value(std::to_string(spread.positions));
        pen.text(" positions");
    }

    void dilution(int row) {
        Pen& pen = line(row, "DOP");
        const auto& dilution = model_.dilution();
        if (!dilution)
            nothing_yet();
        else
            for (const auto& [name, value] : {std::pair("H ", dilution->horizontal),
                                              {"  V ", dilution->vertical},
                                              {"  T ", dilution->time},
                                              {"  P ", dilution->position},
                                              {"  G ", dilution->geometric}})
                pen.text(name).value(formatted("%.2f", static_cast<double>(value)));
        if (const auto& solution = model_.solution())
            pen.text("   satellites ")
                .value(std::to_string(solution->used))
                .text(" used of ")
                .value(std::to_string(solution->locked));
    }

    void automation(int row) {
        Pen& pen = line(row, "Automation");
        const auto& automation = model_.automation();
        if (!automation)
            return nothing_yet();
        pen.value(TIM_messages::state_text(automation->state));
        pen.text("  heartbeat ").value(std::to_string(automation->heartbeat));
        pen.text("  product ").value(automation->product ? "1" : "0");
        pen.text("  curvature ").value(formatted("%.5f", static_cast<double>(automation->curvature)));
    }

    void log(int row) {
        Pen& pen = line(row, "Log");
        const logging_source_status& log = state_.log;
        if (log.path[0] == '\0' && !log.enabled) {
            pen.text("none; --log DIR records one");
            return;
        }
        pen.text(log.enabled ? "" : "off: ");
        if (log.path[0] == '\0')
            pen.text("no file; ").value(std::to_string(log.history_bytes)).text(" bytes of history in memory");
        else
            pen.value(std::to_string(log.file_bytes)).text(" bytes in ").text(log.path);
        if (log.dropped > 0)
            pen.text(" dropped ", Style::bad).value(std::to_string(log.dropped));
    }

    int replies(int row, int rows) {
        line(row, model_.replies().empty() ? "Reply" : "Replies");
        if (model_.replies().empty())
            nothing_yet();
        const auto& replies = model_.replies();
        const std::size_t count = std::min(replies.size(), static_cast<std::size_t>(rows));
        for (std::size_t i = 0; i < count; ++i)
            reply(row + static_cast<int>(i), replies[replies.size() - count + i]);
        return row + rows;
    }

    void reply(int row, const Link_model::Reply& reply) {
        pen_.at(row, label_columns).text(reply.text);
        if (!reply.error)
            return;
        const char* const phrase = *reply.error > 0 ? errcode2str(*reply.error) : nullptr;
        if (phrase)
            pen_.text(formatted("  error %d: %s", *reply.error, phrase + 1), Style::bad); // without its comma
        else
            pen_.text("  unknown error", Style::bad);
    }

    void last(int row, int rows) {
        line(row, state_.labelled ? "Last" : "Last,comma");
        const auto& recent = model_.recent();
        if (recent.empty())
            return nothing_yet();
        const std::size_t count = std::min(recent.size(), static_cast<std::size_t>(rows));
        for (std::size_t i = 0; i < count; ++i) {
            const Link_model::Text& text = recent[recent.size() - count + i];
            pen_.at(row + static_cast<int>(i), label_columns).text(state_.labelled ? text.labelled : text.comma);
        }
    }

    void nothing_yet() { pen_.text("nothing yet"); }

    const Link_model& model_;
    const View_state& state_;
    const Atime now_;
    Grid& grid_;
    Pen pen_;
};

} // namespace

Grid View_layout::lay_out(const Link_model& model, const View_state& state, int rows, int columns, Atime now,
                          const Grid* before) {
    Grid grid(rows, columns);
    Layout(model, state, now, before, grid).draw();
    return grid;
}

} // namespace live_view
