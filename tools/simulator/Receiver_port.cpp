#include "Receiver_port.h"

#include "common/streams.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace simulator {

namespace {

constexpr unsigned largest_write = 2048; // fits every stream's transmit queue, and a frame of the framing adapter
constexpr int retry_ms = 2;              // a stream that takes nothing does not always say when it does again
constexpr int look_ms = 50;              // at the interrupt, and for the end of a child process

} // namespace

Receiver_port::Receiver_port(std::unique_ptr<Event_sender_data_stream> stream, Command_interpreter& commands,
                             const Interrupt& interrupt)
    : stream_(std::move(stream)), commands_(commands), interrupt_(interrupt) {
    stream_->reg_rx_waiter(&waiter_, false);
}

Receiver_port::~Receiver_port() {
    stream_->dereg_rx_waiter();
    stream_.reset(); // its thread may still be telling the waiter
}

Receiver_port::Served Receiver_port::serve_until(Atime due) {
    for (;;) {
        const bool ended = has_ended(); // asked first: what came before the end is answered all the same
        listen();
        const bool answers = !replies_.empty();
        if (!answer() || ended)
            return Served::ended;
        if (answers)
            return Served::answered;
        if (Atime::now() >= due)
            return Served::due;
        wait(std::min(due, Atime::now() + look_ms));
    }
}

bool Receiver_port::send(const std::vector<unsigned char>& bytes) {
    return send(bytes.data(), bytes.size());
}

bool Receiver_port::has_ended() const {
    return interrupt_.has_come() || streams::has_ended(*stream_);
}

/// Obeys every whole line that has come.
void Receiver_port::listen() {
    unsigned char piece[256];
    while (const unsigned count = std::min<unsigned>(stream_->bytes_avail(), sizeof piece)) {
        if (!static_cast<Data_stream&>(*stream_).get_data(piece, count, 0))
            break;
        stream_->drop(count);
        std::for_each(piece, piece + count, [this](unsigned char byte) { take_line(static_cast<char>(byte)); });
    }
}

bool Receiver_port::answer() {
    const std::string replies = std::exchange(replies_, {});
    return send(reinterpret_cast<const unsigned char*>(replies.data()), replies.size());
}

/// Any of CR and LF ends a line. Of one that is too long just enough is kept to see that it is.
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
        std::free(event.payload);
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
