#include "Receiver_port.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

using TIM_messages::Msg_GC;

constexpr unsigned largest_write = 2048; // fits every stream's transmit queue, and a frame of the framing adapter
constexpr int retry_ms = 2;              // not every stream notifies when it accepts bytes again
constexpr int poll_interval_ms = 50;     // of the interrupt, and of the end of a child process

} // namespace

Receiver_port::Receiver_port(std::unique_ptr<Event_sender_data_stream> stream, Command_interpreter& commands,
                             Automation& automation, const Interrupt& interrupt)
    : stream_(std::move(stream)),
      commands_(commands),
      automation_(automation),
      interrupt_(interrupt),
      parser_(stream_.get(), false) {
    parser_.set_checker(&checker_);
    parser_.set_keep_on_error(true); // a command line begins with its first character
    stream_->reg_rx_waiter(&waiter_, false);
}

Receiver_port::~Receiver_port() {
    stream_->dereg_rx_waiter();
    stream_.reset(); // its thread may still notify the waiter
}

Receiver_port::Served Receiver_port::serve_until(Atime due) {
    for (;;) {
        const bool ended = has_ended(); // checked first: commands from before the end are still answered
        obey_received();
        const bool has_replies = !replies_.empty();
        if (!send_replies() || ended)
            return Served::ended;
        if (has_replies)
            return Served::answered;
        if (Atime::now() >= due)
            return Served::due;
        wait(std::min(due, Atime::now() + poll_interval_ms));
    }
}

bool Receiver_port::send(const std::vector<unsigned char>& bytes) {
    return send(bytes.data(), bytes.size());
}

bool Receiver_port::has_ended() const {
    return interrupt_.is_requested() || stream_->has_ended();
}

bool Receiver_port::Command_frames_only::check(Data_stream&, unsigned short identifier, int length) {
    return identifier == Msg_GC::id && length == static_cast<int>(Msg_GC::frame_size);
}

/// Obeys every complete line and command frame that was received.
void Receiver_port::obey_received() {
    int len = 0;
    for (;;) {
        switch (parser_.get_packet(packet_, sizeof packet_, len)) {
        case Vesk_parser::nothing:
            if (!take_short_line())
                return;
            break;
        case Vesk_parser::frame:
            take_frame(static_cast<unsigned>(len));
            break;
        default: // everything else is text
            std::for_each(packet_, packet_ + len, [this](unsigned char byte) { take_line(static_cast<char>(byte)); });
        }
    }
}

/// A frame with a bad checksum is ignored.
void Receiver_port::take_frame(unsigned size) {
    const Msg_GC command(packet_, size);
    if (command.check_checksum())
        automation_.obey(command);
}

/// Takes a line that is shorter than a frame's header, which the parser does not take. \return whether there was one
bool Receiver_port::take_short_line() {
    const unsigned count = std::min(stream_->bytes_avail(), Vesk_message::header_size);
    if (count == Vesk_message::header_size || !static_cast<Data_stream&>(*stream_).get_data(packet_, count, 0))
        return false;
    const auto end = std::find_if(packet_, packet_ + count, [](unsigned char c) { return c == '\r' || c == '\n'; });
    if (end == packet_ + count)
        return false;
    stream_->drop(static_cast<unsigned>(end - packet_) + 1);
    std::for_each(packet_, end + 1, [this](unsigned char byte) { take_line(static_cast<char>(byte)); });
    return true;
}

bool Receiver_port::send_replies() {
    const std::string replies = std::exchange(replies_, {});
    return send(reinterpret_cast<const unsigned char*>(replies.data()), replies.size());
}

/// A CR or an LF ends a line. Of a line that is too long, one byte too many is kept, so that it is refused.
void Receiver_port::take_line(char byte) {
    if (byte != '\r' && byte != '\n') {
        if (line_.size() <= Command_interpreter::longest_line)
            line_ += byte;
        return;
    }
    replies_ += commands_.reply_to(line_);
    line_.clear();
}

void Receiver_port::wait(Atime until) {
    waiter_event event;
    if (waiter_.get_event(event, until) == 0)
        release_payload(event);
}

bool Receiver_port::send(const unsigned char* bytes, std::size_t size) {
    while (size > 0) {
        const auto count = static_cast<unsigned>(std::min<std::size_t>(size, largest_write));
        const int written = stream_->__write(bytes, count);
        if (written > 0) {
            bytes += written;
            size -= static_cast<unsigned>(written);
        } else if (has_ended()) {
            return false;
        } else {
            Atime::delay(retry_ms);
        }
    }
    return true;
}

} // namespace simulator
