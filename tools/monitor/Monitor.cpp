// The monitor waits for bytes, takes every packet that is complete, flushes its output, and waits again:
//
//      wait --bytes--> take packets --none left--> flush --> wait
//        |                |                          |
//        | deadline,      | enough frames            | output fails
//        | interrupt      v                          v
//        +--------------> end <----------------------+
//        |                ^
//        +-end of input-> take the rest
//
// A watcher is attended to before each wait, which is as long as it allows; after the end of the input it is attended
// to until it wants to end.

#include "Monitor.h"

#include <glue/vesk/Vesk_message.h>

#include <algorithm>
#include <poll.h>

namespace {

constexpr unsigned char accepted = Vesk_parser::accepted_byte;
constexpr unsigned shortest_packet = Vesk_message::header_size + 1;

bool ends_text(char c) {
    return c == '\r' || c == '\n' || c == '\0';
}

} // namespace

Monitor::Monitor(const Options& options, Link_input& input, const Interrupt& interrupt, std::FILE* output)
    : options_(options),
      input_(input),
      interrupt_(interrupt),
      output_(output),
      parser_(&input.buffered_bytes(), false),
      lines_(options.labelled),
      sentence_finder_([this](std::string& sentence) { show_sentence(sentence); }) {
    parser_.set_keep_on_error(true); // a sentence that the longest noise is cut in keeps every byte
}

Monitor::End Monitor::run() {
    std::optional<Atime> deadline;
    if (options_.duration_ms > 0)
        deadline = Atime::now() + options_.duration_ms;

    for (;;) {
        const Link_input::Arrival arrival = input_.wait(next_wake_up(deadline), interrupt_.descriptor());
        last_look_ = Atime::now();
        if (watcher_)
            watcher_->see_arrival(input_.arrived());
        if (arrival == Link_input::Arrival::bytes) {
            if (!first_arrival_)
                first_arrival_ = last_look_;
            if (const auto end = take_packets())
                return *end;
        }
        if (arrival == Link_input::Arrival::end)
            return watcher_ ? linger(deadline) : take_rest();
        if (arrival == Link_input::Arrival::wake_up)
            return End::interrupt;
        if (deadline && last_look_ >= *deadline)
            return End::duration;
        if (!attend_watcher())
            return End::interrupt;
    }
}

std::optional<Atime> Monitor::next_wake_up(std::optional<Atime> deadline) const {
    if (!watcher_)
        return deadline;
    return deadline ? std::min(*deadline, watcher_->due()) : watcher_->due();
}

/// False when the watcher wants to end.
bool Monitor::attend_watcher() {
    if (!watcher_)
        return true;
    watcher_->see_account(get_byte_counts());
    return watcher_->attend();
}

/// Nothing will come any more, but the watcher may still have something to look at.
Monitor::End Monitor::linger(std::optional<Atime> deadline) {
    const End end = take_rest();
    watcher_->see_end();
    while (end == End::input && attend_watcher()) {
        if (deadline && Atime::now() >= *deadline)
            break;
        pollfd interrupt{interrupt_.descriptor(), POLLIN, 0};
        poll(&interrupt, 1, static_cast<int>(std::max<std::int64_t>(watcher_->due() - Atime::now(), 1)));
        if (interrupt.revents != 0 && input_.ends_at_wake_up())
            break;
    }
    return end;
}

/// Takes what is complete and shows it; an end when that is reached on the way.
std::optional<Monitor::End> Monitor::take_packets() {
    int len = 0;
    while (!has_enough() && !std::ferror(output_)) {
        const int kind = parser_.get_packet(packet_, sizeof packet_, len);
        if (kind == Vesk_parser::nothing)
            break;
        take_packet(kind, static_cast<unsigned>(len));
    }
    if (!flush())
        return interrupt_.is_requested() ? End::interrupt : End::output_failed;
    if (has_enough())
        return End::count;
    return std::nullopt;
}

/// Nothing will complete what still waits. A garbled length may claim more bytes than will ever come: the frames behind
/// it are looked for from every byte on.
Monitor::End Monitor::take_rest() {
    while (input_.buffered_bytes().bytes_avail() > shortest_packet) { // single bytes would look like acknowledgements
        input_.buffered_bytes().drop(1);
        ++given_up_;
        if (const auto end = take_packets())
            return *end;
    }
    input_ended_ = true;
    return End::input;
}

void Monitor::take_packet(int kind, unsigned len) {
    if (watcher_)
        watcher_->see_packet(kind, packet_, len);
    if (kind != Vesk_parser::noise)
        sentence_finder_.interrupt();
    switch (kind) {
    case Vesk_parser::frame:
        show_frame(len);
        break;
    case Vesk_parser::reply:
        show_reply(len);
        break;
    case Vesk_parser::acknowledgement:
        print_line(packet_[0] == accepted ? "acknowledged" : "refused");
        break;
    default:
        sentence_finder_.take({reinterpret_cast<const char*>(packet_), len});
        break;
    }
}

void Monitor::show_frame(unsigned len) {
    Vesk_message message(packet_, len);
    if (!message.check_checksum()) {
        summary_.count_checksum_failure();
        return;
    }
    summary_.count_frame(message.get_msg_id());
    if (options_.quiet)
        return;
    lines_.print_frame(message, line_, sizeof line_);
    if (line_[0] != '\0') // else the printer has said something about the frame instead
        print_line(line_);
}

void Monitor::show_reply(unsigned len) {
    summary_.count_reply(Vesk_message(packet_, len).get_msg_id());
    print_line({line_, lines_.print_reply(packet_, len, line_, sizeof line_)});
}

/// A sentence is part of the noise; only positions are shown.
void Monitor::show_sentence(std::string& sentence) {
    if (!has_good_checksum(sentence)) {
        sentences_.count_bad(sentence.size());
        return;
    }
    sentences_.count_good(kind_of_sentence(sentence), sentence.size());
    if (watcher_)
        watcher_->see_sentence(sentence);
    const NMEA_messages::Msg_NMEA_GGA position(sentence.data(), static_cast<unsigned>(sentence.size()));
    if (options_.quiet || !position.is_GGA())
        return;
    lines_.print_position(position, line_, sizeof line_);
    print_line(line_);
}

/// Prints a text as one line, whatever is in it: its own line end goes, and any other byte that a terminal might act on
/// becomes a point. All in one call, so that an output that fails is tried once.
void Monitor::print_line(std::string_view text) {
    if (options_.quiet)
        return;
    while (!text.empty() && ends_text(text.back()))
        text.remove_suffix(1);
    std::transform(text.begin(), text.end(), line_, [](char c) { return c >= 0x20 && c <= 0x7E ? c : '.'; });
    line_[text.size()] = '\n';
    std::fwrite(line_, 1, text.size() + 1, output_);
}

/// On an output that has failed nothing more is tried: it may be stuck.
bool Monitor::flush() {
    return !std::ferror(output_) && std::fflush(output_) == 0;
}

/// Of the bytes that were looked at; of all of them when no more will come.
Vesk_parser::Byte_counts Monitor::get_byte_counts() {
    Vesk_parser::Byte_counts bytes = parser_.get_byte_counts();
    bytes.noise += given_up_;
    if (input_ended_)
        bytes.noise += input_.buffered_bytes().bytes_avail();
    return bytes;
}

void Monitor::print_summary(std::FILE* out) {
    const Vesk_parser::Byte_counts bytes = get_byte_counts();
    std::uint64_t arrived = input_.arrived();
    if (!input_ended_)
        arrived -= input_.buffered_bytes().bytes_avail();
    const double seconds = first_arrival_ ? static_cast<double>(last_look_ - *first_arrival_) / 1000 : 0;
    summary_.print(out, arrived, bytes, seconds);
    sentences_.print(out);
}
