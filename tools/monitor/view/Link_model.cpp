#include "Link_model.h"

#include "monitor/line_text.h"

#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/TIM_messages.h>
#include <glue/vesk/Vesk_error_decoder.h>

#include <algorithm>
#include <string_view>

namespace live_view {

namespace {

using namespace GNSS_messages;
using TIM_messages::Msg_GS;

constexpr int longest_text = 512; // longer texts are cut: no screen is wider

/// A text as one line: without its line end, with points for other unprintable bytes.
std::string line_of(std::string_view text) {
    std::string line(without_line_end(text).substr(0, longest_text));
    std::transform(line.begin(), line.end(), line.begin(), printable);
    return line;
}

template <typename Message>
Message as(const Vesk_message& frame) {
    return Message(frame.get_ptr(), frame.get_size());
}

int both(const Msg_PS& solution, std::uint8_t (Msg_PS::*get)(unsigned) const) {
    return (solution.*get)(0) + (solution.*get)(1);
}

} // namespace

Link_model::Link_model(Atime start) : start_(start), byte_rate_(start), frame_rate_(start) {}

void Link_model::take_arrival(std::uint64_t arrived, Atime now) {
    if (arrived <= arrived_)
        return;
    condition_.bytes_received(arrived - arrived_, now);
    byte_rate_.add(arrived - arrived_, now);
    arrived_ = arrived;
}

void Link_model::take_packet(int kind, unsigned char* packet, unsigned len, Atime now) {
    switch (kind) {
    case Vesk_parser::frame:
        take_frame(packet, len, now);
        break;
    case Vesk_parser::reply:
        take_reply(packet, len, now);
        break;
    case Vesk_parser::acknowledgement: {
        const std::string text = Message_lines::acknowledgement_text(packet[0]);
        remember({text, text});
        break;
    }
    default:
        break;
    }
}

void Link_model::take_frame(unsigned char* packet, unsigned len, Atime now) {
    const Vesk_message frame(packet, len);
    if (!frame.check_checksum()) {
        ++checksum_failures_;
        return;
    }
    condition_.good_frame_received(now);
    ++good_frames_;
    frame_rate_.add(1, now);
    count(frame.get_msg_id(), now);
    evaluate(frame, now);
    evaluate_list(frame);

    // The printer reports an unknown frame, so it is asked only once.
    char labelled[longest_text] = "";
    char comma[longest_text] = "";
    if (labelled_.print_frame(frame, labelled, sizeof labelled))
        comma_.print_frame(frame, comma, sizeof comma);
    remember({line_of(labelled), line_of(comma[0] != '\0' ? comma : labelled)});
}

/// A reply proves, as a good frame does, that the link works.
void Link_model::take_reply(unsigned char* packet, unsigned len, Atime now) {
    condition_.good_frame_received(now);
    const std::string text = line_of({reinterpret_cast<const char*>(packet), len});
    count(Vesk_message(packet, len).get_msg_id(), now);
    remember({text, text});
    Reply reply{text, std::nullopt};
    if (!Vesk_response(packet, len).get_response_status())
        reply.error = Vesk_error_decoder::extract(text.c_str());
    replies_.push_back(std::move(reply));
    if (replies_.size() > most_recent)
        replies_.pop_front();
}

void Link_model::take_sentence(std::string_view sentence, Atime now) {
    condition_.sentence_received(now);
    if (sentence.size() >= 2)
        count(Vesk_message::msg_id(sentence[0], sentence[1]), now);
    const std::string text = line_of(sentence);
    remember({text, text});
}

void Link_model::count(int identifier, Atime now) {
    auto found = std::find_if(messages_.begin(), messages_.end(),
                              [=](const Message& message) { return message.identifier == identifier; });
    if (found == messages_.end()) {
        if (messages_.size() == most_messages) {
            ++other_messages_;
            return;
        }
        found = messages_.insert(messages_.end(), {identifier, 0, Rate_meter(start_)});
    }
    ++found->count;
    found->rate.add(1, now);
}

void Link_model::evaluate(const Vesk_message& frame, Atime now) {
    switch (frame.get_msg_id()) {
    case Msg_RT::id:
        sky_.epoch_begins();
        break;
    case Msg_PG::id: {
        const auto m = as<Msg_PG>(frame);
        position_ = {m.get_lat_deg(), m.get_lon_deg(), m.get_hgt(), m.get_sigma(), m.get_type()};
        scatter_.add(m.get_lat(), m.get_lon(), m.get_hgt(), now);
        break;
    }
    case Msg_DP::id: {
        const auto m = as<Msg_DP>(frame);
        dilution_ = {m.get_hdop(), m.get_vdop(), m.get_tdop(), m.get_pdop(), m.get_gdop()};
        break;
    }
    case Msg_PS::id: {
        const auto m = as<Msg_PS>(frame);
        solution_ = {both(m, &Msg_PS::get_used), both(m, &Msg_PS::get_avail), both(m, &Msg_PS::get_locked)};
        break;
    }
    case Msg_GS::id: {
        const auto m = as<Msg_GS>(frame);
        automation_ = {m.get_state(), m.get_heart(), m.get_prod(), m.get_curv()};
        break;
    }
    default:
        break;
    }
}

void Link_model::evaluate_list(const Vesk_message& frame) {
    switch (frame.get_msg_id()) {
    case Msg_SI::id:
        return sky_.numbers(as<Msg_SI>(frame));
    case Msg_EL::id:
        return sky_.elevations(as<Msg_EL>(frame));
    case Msg_AZ::id:
        return sky_.azimuths(as<Msg_AZ>(frame));
    case Msg_SS::id:
        return sky_.strengths(as<Msg_SS>(frame));
    case Msg_EC::id:
        return sky_.uses(as<Msg_EC>(frame));
    default:
        return;
    }
}

void Link_model::remember(Text text) {
    recent_.push_back(std::move(text));
    if (recent_.size() > most_recent)
        recent_.pop_front();
}

void Link_model::clear(Atime now) {
    start_ = now;
    byte_rate_ = frame_rate_ = Rate_meter(now);
    messages_.clear();
    recent_.clear();
    replies_.clear();
    scatter_.clear();
    cleared_arrived_ = arrived_;
    cleared_bytes_ = bytes_;
    good_frames_ = checksum_failures_ = other_messages_ = 0;
}

Vesk_parser::Byte_counts Link_model::account() const {
    Vesk_parser::Byte_counts counts = bytes_;
    counts.frames -= cleared_bytes_.frames;
    counts.replies -= cleared_bytes_.replies;
    counts.acknowledgements -= cleared_bytes_.acknowledgements;
    counts.noise -= cleared_bytes_.noise;
    counts.separators -= cleared_bytes_.separators;
    return counts;
}

} // namespace live_view
