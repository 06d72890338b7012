// The monitor waits for bytes, shows every complete packet, flushes its output, and waits again:
//
//      wait --bytes--> show packets --none left--> flush --> wait
//        |                |                          |
//        | deadline,      | enough frames            | output fails
//        | interrupt      v                          v
//        +--------------> end <----------------------+
//        |                ^
//        +-end of input-> search the rest
//
// `attend` of a watcher is called before each wait, which lasts no longer than the watcher allows. After the end of the
// input it is called until the watcher ends the run.

#include "Monitor.h"

#include "line_text.h"

#include <glue/vesk/Vesk_message.h>

#include <algorithm>
#include <poll.h>

namespace {

constexpr unsigned shortest_packet = Vesk_message::header_size + 1;

} // namespace

Monitor::Monitor(const Options& options, Link_input& input, const Interrupt& interrupt, std::FILE* output)
    : options_(options),
      input_(input),
      interrupt_(interrupt),
      output_(output),
      parser_(&input.buffered_bytes(), false),
      lines_(options.labelled),
      sentence_finder_([this](std::string& sentence) { show_sentence(sentence); }) {
    parser_.set_keep_on_error(true); // a sentence keeps every byte, even where the longest noise is cut
}

Monitor::End Monitor::run() {
    std::optional<Atime> deadline;
    if (options_.duration_ms > 0)
        deadline = Atime::now() + options_.duration_ms;

    for (;;) {
        const Link_input::Arrival arrival = input_.wait(next_wake_up(deadline), interrupt_.descriptor());
        last_wake_up_ = Atime::now();
        if (watcher_)
            watcher_->see_arrival(input_.arrived());
        if (arrival == Link_input::Arrival::bytes) {
            if (!first_arrival_)
                first_arrival_ = last_wake_up_;
            if (const auto end = take_packets())
                return *end;
        }
        if (arrival == Link_input::Arrival::end)
            return watcher_ ? linger(deadline) : take_rest();
        if (arrival == Link_input::Arrival::wake_up)
            return End::interrupt;
        if (deadline && last_wake_up_ >= *deadline)
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

/// \return false when the watcher ends the run
bool Monitor::attend_watcher() {
    if (!watcher_)
        return true;
    watcher_->see_account(get_byte_counts());
    return watcher_->attend();
}

/// The input has ended; the watcher decides when the run ends.
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

/// Shows all complete packets. \return the end of the run, if it is reached
std::optional<Monitor::End> Monitor::take_packets() {
    int len = 0;
    while (!has_enough() && !std::ferror(output_)) {
        const int kind = parser_.get_packet(packet_, sizeof packet_, len);
        if (kind == Vesk_parser::nothing)
            break;
        take_packet(kind, static_cast<unsigned>(len));
    }
    if (const auto failure = flush())
        return failure;
    if (has_enough())
        return End::count;
    return std::nullopt;
}

/// No more bytes follow to complete the buffered ones. A damaged length may claim more bytes than there are, so a
/// packet is looked for at every byte. The bytes before it are noise, in which a sentence may be; the end of the input
/// ends the last one.
Monitor::End Monitor::take_rest() {
    Data_stream& rest = input_.buffered_bytes();
    while (rest.bytes_avail() > 0) {
        skip_byte();
        if (rest.bytes_avail() < shortest_packet) // a single byte would look like an acknowledgement
            continue;
        if (const auto end = take_packets())
            return *end;
    }
    sentence_finder_.finish();
    return flush().value_or(End::input);
}

/// Counts the oldest byte as noise.
void Monitor::skip_byte() {
    unsigned char byte = 0;
    input_.buffered_bytes().get_data(&byte, 1, 0);
    input_.buffered_bytes().drop(1);
    ++skipped_;
    sentence_finder_.take({reinterpret_cast<const char*>(&byte), 1});
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
        print_line(Message_lines::acknowledgement_text(packet_[0]));
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
    if (line_[0] != '\0') // empty: the printer has reported the frame on standard error
        print_line(line_);
}

void Monitor::show_reply(unsigned len) {
    summary_.count_reply(Vesk_message(packet_, len).get_msg_id());
    print_line({line_, lines_.print_reply(packet_, len, line_, sizeof line_)});
}

/// A sentence is part of the noise. Only positions are shown.
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

/// Prints a text as one line, without its own line end and with a point for every other byte that a terminal might act
/// on. A single call, so that a failing output is tried once.
void Monitor::print_line(std::string_view text) {
    if (options_.quiet)
        return;
    text = without_line_end(text);
    std::transform(text.begin(), text.end(), line_, printable);
    line_[text.size()] = '\n';
    std::fwrite(line_, 1, text.size() + 1, output_);
}

/// An output that has failed is not flushed again: it may block. \return the end of the run when it fails
std::optional<Monitor::End> Monitor::flush() {
    if (!std::ferror(output_) && std::fflush(output_) == 0)
        return std::nullopt;
    return interrupt_.is_requested() ? End::interrupt : End::output_failed;
}

Vesk_parser::Byte_counts Monitor::get_byte_counts() const {
    Vesk_parser::Byte_counts bytes = parser_.get_byte_counts();
    bytes.noise += skipped_;
    return bytes;
}

void Monitor::print_summary(std::FILE* out) {
    const std::uint64_t parsed = input_.arrived() - input_.buffered_bytes().bytes_avail();
    const double seconds = first_arrival_ ? static_cast<double>(last_wake_up_ - *first_arrival_) / 1000 : 0;
    summary_.print(out, parsed, get_byte_counts(), seconds);
    sentences_.print(out);
}
