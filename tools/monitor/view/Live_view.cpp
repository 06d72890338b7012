#include "Live_view.h"

#include <algorithm>

using live_view::Grid;
using live_view::Link_model;
using live_view::Terminal;
using live_view::View_layout;

namespace {

constexpr std::int64_t look_interval_ms = 50; // at keys
constexpr std::int64_t show_interval_ms = 250;
constexpr std::int64_t first_show_ms = 400; // a link that is alive has said something by then
constexpr std::int64_t note_ms = 5000;

// Bytes a second to the terminal: on average over some time, and at any time as the line to it carries them.
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
    next_look_ = Atime::now();
    next_show_ = next_look_ + first_show_ms;
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
    if (now < next_look_)
        return true;
    next_look_ = now + look_interval_ms;
    if (terminal_.is_gone() || !obey_keys(now))
        return false;
    const std::string said = diverted_->last_new_line();
    if (!said.empty() && said != said_last_) // what is said again and again would hide the keys for ever
        note(said_last_ = said, now);
    if ((hurries_ || now >= next_show_) && terminal_.is_ready())
        show(now);
    return true;
}

/// \return false when one of them means to quit
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
        pause_or_go_on(now);
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
    hurries_ = true;
}

void Live_view::pause_or_go_on(Atime now) {
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
        note("No log was asked for.", now);
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
    hurries_ = false;
}

/// A redraw out of turn, after a key, puts the next one off all the more.
void Live_view::pace(unsigned bytes, Atime now) {
    line_is_free_ = std::max(line_is_free_, now) + ms_for(bytes, line_bytes_per_second(terminal_));
    share_is_free_ = std::max(share_is_free_, now + -averaged_ms) + ms_for(bytes, average_bytes_per_second);
    next_show_ = std::max({now + show_interval_ms, line_is_free_, share_is_free_});
}
