#include "Live_view.h"

#include <algorithm>

using live_view::Grid;
using live_view::Link_model;
using live_view::Terminal;
using live_view::View_layout;

namespace {

constexpr std::int64_t poll_interval_ms = 50; // of keys
constexpr std::int64_t show_interval_ms = 250;
constexpr std::int64_t first_show_ms = 400; // by then, a working link has sent something
constexpr std::int64_t note_ms = 5000;

// Bytes a second to the terminal: a limit for the average, and a limit from the speed of the line to it
constexpr unsigned average_bytes_per_second = 750;
constexpr std::int64_t averaged_ms = 6000;
constexpr unsigned share_of_line_percent = 80;

unsigned line_bytes_per_second(const Terminal& terminal) {
    const unsigned line = terminal.bytes_per_second() * share_of_line_percent / 100;
    return line > 0 ? line : average_bytes_per_second;
}

std::int64_t ms_for(unsigned bytes, unsigned bytes_per_second) {
    return std::int64_t{bytes} * 1000 / bytes_per_second;
}

} // namespace

Live_view::Live_view(Options options) : options_(std::move(options)), model_(Atime::now()) {
    if (problem().empty())
        diverted_.emplace();
    state_.source = options_.source;
    state_.labelled = options_.labelled;
    next_poll_ = Atime::now();
    next_show_ = next_poll_ + first_show_ms;
}

void Live_view::see_arrival(std::uint64_t arrived) {
    model_.take_arrival(arrived, Atime::now());
}

void Live_view::see_packet(int kind, unsigned char* packet, unsigned len) {
    model_.take_packet(kind, packet, len, Atime::now());
}

void Live_view::see_sentence(std::string_view sentence) {
    model_.take_sentence(sentence, Atime::now());
}

void Live_view::see_account(const Vesk_parser::Byte_counts& bytes) {
    model_.take_account(bytes);
}

void Live_view::see_end() {
    model_.take_end();
}

bool Live_view::attend() {
    const Atime now = Atime::now();
    if (now < next_poll_)
        return true;
    next_poll_ = now + poll_interval_ms;
    if (terminal_.is_gone() || !obey_keys(now))
        return false;
    const std::string line = diverted_->last_new_line();
    if (!line.empty() && line != noted_last_) // a line that is repeated would hide the keys forever
        note(noted_last_ = line, now);
    if ((is_urgent_ || now >= next_show_) && terminal_.is_ready())
        show(now);
    return true;
}

/// \return false for the key that quits
bool Live_view::obey_keys(Atime now) {
    for (int key = terminal_.key(); key != Terminal::no_key; key = terminal_.key()) {
        if (key == 'q')
            return false;
        obey(key, now);
    }
    return true;
}

void Live_view::obey(int key, Atime now) {
    switch (key) {
    case ' ':
        toggle_pause(now);
        break;
    case 'l':
        switch_log(now);
        break;
    case 'c':
        model_.clear(now);
        if (paused_)
            paused_ = Snapshot{model_, now};
        break;
    case 'f':
        state_.labelled = !state_.labelled;
        break;
    case 'h':
    case '?':
        state_.help = !state_.help;
        marks_changes_ = false;
        break;
    case Terminal::changed:
        shown_ = Grid(0, 0);
        break;
    default:
        return;
    }
    is_urgent_ = true;
}

void Live_view::toggle_pause(Atime now) {
    if (paused_)
        paused_.reset();
    else
        paused_ = Snapshot{model_, now};
    state_.paused = paused_.has_value();
}

void Live_view::switch_log(Atime now) {
    if (options_.switch_log)
        options_.switch_log();
    else
        note("No log: start with --log DIR.", now);
}

void Live_view::note(std::string text, Atime now) {
    state_.note = std::move(text);
    note_ends_ = now + note_ms;
}

void Live_view::show(Atime now) {
    if (now >= note_ends_)
        state_.note.clear();
    state_.log = logging_source_get_status(logging_source_receiver);
    const Terminal::Size size = terminal_.size();
    const Link_model& model = paused_ ? paused_->model : model_;
    const Atime time = paused_ ? paused_->time : now;
    const bool comparable = marks_changes_ && shown_.rows() == size.rows && shown_.columns() == size.columns;
    Grid grid = View_layout::lay_out(model, state_, size.rows, size.columns, time, comparable ? &shown_ : nullptr);
    terminal_.show(grid);
    pace(update_cost(shown_, grid), now);
    shown_ = std::move(grid);
    marks_changes_ = !state_.help;
    is_urgent_ = false;
}

/// Every update delays the next one by the time that its bytes take. An extra update after a key does so, too.
void Live_view::pace(unsigned bytes, Atime now) {
    line_free_at_ = std::max(line_free_at_, now) + ms_for(bytes, line_bytes_per_second(terminal_));
    average_met_at_ = std::max(average_met_at_, now + -averaged_ms) + ms_for(bytes, average_bytes_per_second);
    next_show_ = std::max({now + show_interval_ms, line_free_at_, average_met_at_});
}
