#include "Message_lines.h"

#include "line_text.h"

#include <glue/vesk/MC_UI_messages.h>
#include <glue/vesk/TIM_messages.h>
#include <glue/vesk/Vesk_error_decoder.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <string>

namespace {

using MC_UI_messages::Msg_ES;
using TIM_messages::Msg_GC;
using TIM_messages::Msg_GS;

template <typename Message>
Message as(const Vesk_message& frame) {
    return Message(frame.get_ptr(), frame.get_size());
}

bool is_whole_TIM_frame(const Vesk_message& frame) {
    return frame.get_msg_len() == TIM_messages::TIM_Vesk_message::frame_size - Vesk_message::header_size;
}

bool is_whole_item_frame(const Vesk_message& frame) {
    constexpr unsigned body_without_items = 7;
    const unsigned count = as<Msg_ES>(frame).get_num_items();
    return count <= Msg_ES::max_items &&
           frame.get_msg_len() == body_without_items + count * static_cast<unsigned>(Msg_ES::item_size);
}

void append_item(std::string& text, const Msg_ES& message, unsigned i) {
    const float number = message.get_item(i);
    char item[32];
    if (number == 0 || std::isnormal(number))
        std::snprintf(item, sizeof item, "%g", static_cast<double>(number));
    else
        std::snprintf(item, sizeof item, "%d", static_cast<int>(message.get_int_item(i)));
    text += item;
}

bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

/// The error that a reply reports; -1 when it reports none, or an unknown one.
int error_of(std::string_view reply) {
    if (reply.substr(0, 2) != "ER" || reply.size() < Vesk_message::header_size)
        return -1;
    std::string text(reply.substr(Vesk_message::header_size));
    while (!text.empty() && is_space(text.back()))
        text.pop_back();
    return Vesk_error_decoder::extract(text.c_str());
}

} // namespace

const char* Message_lines::acknowledgement_text(unsigned char byte) {
    constexpr unsigned char accepted = 0x06;
    return byte == accepted ? "acknowledged" : "refused";
}

bool Message_lines::print_frame(const Vesk_message& frame, char* line, unsigned size) const {
    line[0] = '\0';
    const int id = frame.get_msg_id();
    if (id == Msg_GS::id && is_whole_TIM_frame(frame))
        print_status(frame, line, size);
    else if (id == Msg_GC::id && is_whole_TIM_frame(frame))
        print_command(frame, line, size);
    else if (id == Msg_ES::id && is_whole_item_frame(frame))
        print_items(frame, line, size);
    else
        return printer_.snprint(frame, line, static_cast<int>(size)) > 0;
    return true;
}

void Message_lines::print_status(const Vesk_message& frame, char* line, unsigned size) const {
    const auto status = as<Msg_GS>(frame);
    const int prod = status.get_prod();
    const double curv = status.get_curv();
    if (labelled_)
        std::snprintf(line, size, "GS heart=%u state=%s prod=%d curv=%f", status.get_heart(),
                      TIM_messages::state_text(status.get_state()), prod, curv);
    else
        std::snprintf(line, size, "GS,%u,%u,%d,%f", status.get_heart(), status.get_state(), prod, curv);
}

void Message_lines::print_command(const Vesk_message& frame, char* line, unsigned size) const {
    const auto command = as<Msg_GC>(frame);
    std::string requests;
    for (unsigned n = Msg_GC::requests; n-- > 0;)
        requests += std::string(command.get_request(n) ? "1" : "0") + (n > 0 ? "," : "");
    const int ready = command.get_ready();
    const int prod = command.get_prod();
    const double curv = command.get_curv();
    if (labelled_)
        std::snprintf(line, size, "GC heart=%u ready=%d requests={%s} state=%s prod=%d curv=%f", command.get_heart(),
                      ready, requests.c_str(), TIM_messages::state_text(command.get_state()), prod, curv);
    else
        std::snprintf(line, size, "GC,%u,%d,{%s},%u,%d,%f", command.get_heart(), ready, requests.c_str(),
                      command.get_state(), prod, curv);
}

void Message_lines::print_items(const Vesk_message& frame, char* line, unsigned size) const {
    const auto message = as<Msg_ES>(frame);
    const unsigned count = message.get_num_items();
    std::string text = (labelled_ ? "ES items=" : "ES,") + std::to_string(count);
    for (unsigned i = 0; i < count; ++i) {
        text += labelled_ ? ' ' : ',';
        append_item(text, message, i);
    }
    std::snprintf(line, size, "%s", text.c_str());
}

unsigned Message_lines::print_reply(const unsigned char* reply, unsigned len, char* line, unsigned size) const {
    const std::string_view text = without_line_end({reinterpret_cast<const char*>(reply), len});
    std::string whole(text);
    const int error = error_of(text);
    if (error >= 0) {
        const char* const phrase = errcode2str(error) + 1; // without the comma before it
        whole += labelled_ ? " error=" + std::to_string(error) + " text=" + phrase
                           : "," + std::to_string(error) + "," + phrase;
    }
    return static_cast<unsigned>(whole.copy(line, size));
}

void Message_lines::print_position(const NMEA_messages::Msg_NMEA_GGA& position, char* line, unsigned size) const {
    std::snprintf(line, size,
                  labelled_ ? "    GGA lat=%.10f lon=%.10f alt=%.3fm fix=%d sats=%d hdop=%.1f"
                            : "    GGA,%.10f,%.10f,%.3f,%d,%d,%.1f",
                  position.get_latitude(), position.get_longitude(), position.get_altitude(), position.get_fix(),
                  position.get_satellites(), position.get_hdop());
}
