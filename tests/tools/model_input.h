#pragma once

#include <monitor/view/Link_model.h>

#include <glue/vesk/TIM_messages.h>
#include <support/fakes/Scripted_stream.h>

#include <cstdio>
#include <functional>
#include <string>

/// Feeds a live view's model with the packets of a link, at times that the test chooses.
class Fed_model {
  public:
    explicit Fed_model(Atime start = Atime() + 100000) : now(start), model(start), parser_(&stream_, false) {}

    void feed(const std::string& bytes) {
        for (std::size_t begin = 0; begin < bytes.size(); begin += piece) {
            const std::string part = bytes.substr(begin, piece);
            arrived_ += part.size();
            model.take_arrival(arrived_, now);
            stream_.receive(part);
            take_packets();
        }
    }

    /// Bytes that are part of no packet so far.
    unsigned buffered() { return stream_.bytes_avail(); }

    Atime now;
    live_view::Link_model model;
    std::function<void(int kind, unsigned char* packet, unsigned len)> on_packet; ///< sees each packet first

  private:
    static constexpr std::size_t piece = 1000;

    void take_packets() {
        unsigned char packet[Vesk_parser::largest_packet];
        int len = 0;
        while (const int kind = parser_.get_packet(packet, sizeof packet, len)) {
            if (on_packet)
                on_packet(kind, packet, static_cast<unsigned>(len));
            model.take_packet(kind, packet, static_cast<unsigned>(len), now);
        }
        model.take_account(parser_.get_byte_counts());
    }

    Scripted_stream stream_;
    Vesk_parser parser_;
    std::uint64_t arrived_ = 0;
};

/// A reply of the receiver.
inline std::string reply_text(const std::string& identifier, const std::string& text) {
    char length[8];
    std::snprintf(length, sizeof length, "%03X", static_cast<unsigned>(text.size() + 1));
    return identifier + length + text + "\r\n";
}

/// A status of the automation.
inline std::string automation_status(unsigned state, unsigned heartbeat, bool product, float curvature) {
    unsigned char buffer[TIM_messages::Msg_GS::frame_size];
    TIM_messages::Msg_GS status(buffer, sizeof buffer);
    status.init();
    status.set_heart(heartbeat);
    status.set_state(state);
    status.set_prod(product);
    status.set_curv(curvature);
    status.set_checksum(true);
    return std::string(buffer, buffer + sizeof buffer) + "\n";
}
