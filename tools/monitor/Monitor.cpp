// The monitor waits for bytes, takes every packet that is complete, flushes its output, and waits again:
//
//      wait --bytes--> take packets --none left--> flush --> wait
//        |                |                          |
//        | end of input,  | enough frames            | output fails
//        | deadline,      v                          v
//        +-interrupt----> end <----------------------+

#include "Monitor.h"

#include <glue/vesk/Vesk_message.h>

#include <cerrno>
#include <cstring>

Monitor::Monitor(const Options& options, Receiver_input& input, const Interrupt& interrupt, std::FILE* output)
    : options_(options),
      input_(input),
      interrupt_(interrupt),
      output_(output),
      parser_(&input, false),
      printer_(options.labelled) {}

Monitor::End Monitor::run() {
    std::optional<Atime> deadline;
    if (options_.duration_ms > 0)
        deadline = Atime::now() + options_.duration_ms;

    for (;;) {
        const Receiver_input::Arrival arrival = input_.wait(deadline, interrupt_.descriptor());
        last_look_ = Atime::now();
        if (arrival == Receiver_input::Arrival::bytes) {
            if (!first_arrival_)
                first_arrival_ = last_look_;
            if (const auto end = take_packets())
                return *end;
        }
        if (arrival == Receiver_input::Arrival::end) {
            input_ended_ = true;
            return End::input;
        }
        if (arrival == Receiver_input::Arrival::wake_up)
            return End::interrupt;
        if (deadline && last_look_ >= *deadline)
            return End::duration;
    }
}

/// Takes what is complete and shows it; an end when that is reached on the way.
std::optional<Monitor::End> Monitor::take_packets() {
    int len = 0;
    while (!has_enough()) {
        const int kind = parser_.get_packet(packet_, sizeof packet_, len);
        if (kind == Vesk_parser::nothing)
            break;
        take_packet(kind, static_cast<unsigned>(len));
    }
    if (!flush())
        return interrupt_.has_come() ? End::interrupt : End::output_failed;
    if (has_enough())
        return End::count;
    return std::nullopt;
}

void Monitor::take_packet(int kind, unsigned len) {
    switch (kind) {
    case Vesk_parser::frame:
        show_frame(len);
        break;
    case Vesk_parser::reply:
        summary_.count_reply(Vesk_message(packet_, len).get_msg_id());
        print_text(static_cast<unsigned>(strnlen(reinterpret_cast<const char*>(packet_), len)));
        break;
    case Vesk_parser::acknowledgement:
        if (!options_.quiet)
            std::fputs(packet_[0] == 0x06 ? "acknowledged\n" : "refused\n", output_);
        break;
    default:
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
    line_[0] = '\0';
    printer_.snprint(message, line_, sizeof line_);
    const std::size_t length = strcspn(line_, "\r\n");
    std::fwrite(line_, 1, length, output_);
    std::fputc('\n', output_);
}

/// Prints a reply as it stands, without its line end; a byte that a terminal might act on becomes a point.
void Monitor::print_text(unsigned len) {
    if (options_.quiet)
        return;
    while (len > 0 && (packet_[len - 1] == '\r' || packet_[len - 1] == '\n'))
        --len;
    for (unsigned i = 0; i < len; ++i)
        std::fputc(packet_[i] >= 0x20 && packet_[i] <= 0x7E ? packet_[i] : '.', output_);
    std::fputc('\n', output_);
}

bool Monitor::flush() {
    return std::fflush(output_) == 0 && !std::ferror(output_);
}

void Monitor::print_summary(std::FILE* out) {
    const unsigned waiting = input_.bytes_avail();
    Vesk_parser::Byte_counts bytes = parser_.get_byte_counts();
    std::uint64_t arrived = input_.arrived();
    if (input_ended_)
        bytes.noise += waiting;
    else
        arrived -= waiting;
    const double seconds = first_arrival_ ? static_cast<double>(last_look_ - *first_arrival_) / 1000 : 0;
    summary_.print(out, arrived, bytes, seconds);
}
