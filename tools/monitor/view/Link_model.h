#pragma once

#include "Link_condition.h"
#include "Position_scatter.h"
#include "Rate_meter.h"
#include "Sky_lists.h"

#include "monitor/Message_lines.h"

#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class Vesk_message;

namespace live_view {

/// All data about a link that the live view shows, independent of a screen.
///
/// It is notified of events and their times, and reads no clock itself. A copy is a snapshot.
class Link_model {
  public:
    /// So many different messages are counted separately; all others are counted together.
    static constexpr std::size_t most_messages = 64;
    /// How many packets and replies are remembered.
    static constexpr std::size_t most_recent = 64;

    struct Message {
        int identifier;
        std::uint64_t count;
        Rate_meter rate;
    };
    /// One packet in both text forms, without its line end.
    struct Text {
        std::string labelled;
        std::string comma;
    };
    /// A reply's text; for an error also its code, -1 when the phrase is unknown.
    struct Reply {
        std::string text;
        std::optional<int> error;
    };
    struct Position {
        double latitude; ///< degrees
        double longitude;
        double height; ///< metres
        float sigma;
        int type;
    };
    struct Dilution {
        float horizontal, vertical, time, position, geometric;
    };
    struct Solution {
        int used, available, locked; ///< satellites, of both constellations
    };
    struct Automation {
        unsigned state, heartbeat;
        bool product;
        float curvature;
    };

    explicit Link_model(Atime start);

    // ---- Events on the link, in the order of time ----
    void take_arrival(std::uint64_t arrived, Atime now);
    void take_packet(int kind, unsigned char* packet, unsigned len, Atime now);
    /// A sentence counts as one message with all others that begin with the same two characters.
    void take_sentence(std::string_view sentence, Atime now);
    void take_account(const Vesk_parser::Byte_counts& bytes) { bytes_ = bytes; }
    void take_end() { condition_.link_ended(); }

    /// Counts, rates, scatter and remembered texts start again; the receiver's latest values stay.
    void clear(Atime now);

    // ---- State of the link ----
    const Link_condition& condition() const { return condition_; }
    std::uint64_t arrived() const { return arrived_ - cleared_arrived_; }
    /// What the bytes were part of. A received byte that is not in here belongs to an incomplete packet.
    Vesk_parser::Byte_counts account() const;
    std::uint64_t good_frames() const { return good_frames_; }
    std::uint64_t checksum_failures() const { return checksum_failures_; }
    const Rate_meter& byte_rate() const { return byte_rate_; }
    const Rate_meter& frame_rate() const { return frame_rate_; }
    /// In the order in which they were first received.
    const std::vector<Message>& messages() const { return messages_; }
    /// Frames, replies and sentences beyond `most_messages` different ones.
    std::uint64_t other_messages() const { return other_messages_; }
    /// Oldest first.
    const std::deque<Text>& recent() const { return recent_; }
    const std::deque<Reply>& replies() const { return replies_; }

    // ---- The receiver's latest values; none before the first ----
    const std::optional<Position>& position() const { return position_; }
    const Position_scatter& scatter() const { return scatter_; }
    const std::optional<Dilution>& dilution() const { return dilution_; }
    const std::optional<Solution>& solution() const { return solution_; }
    const std::vector<Satellite>& satellites() const { return sky_.satellites(); }
    const std::optional<Automation>& automation() const { return automation_; }

  private:
    void take_frame(unsigned char* packet, unsigned len, Atime now);
    void take_reply(unsigned char* packet, unsigned len, Atime now);
    void count(int identifier, Atime now);
    void evaluate(const Vesk_message& frame, Atime now);
    void evaluate_list(const Vesk_message& frame);
    void remember(Text text);

    Link_condition condition_;
    std::uint64_t arrived_ = 0;
    std::uint64_t cleared_arrived_ = 0; // bytes received before `clear`
    Vesk_parser::Byte_counts bytes_;
    Vesk_parser::Byte_counts cleared_bytes_;
    std::uint64_t good_frames_ = 0;
    std::uint64_t checksum_failures_ = 0;
    std::uint64_t other_messages_ = 0;
    Atime start_;
    Rate_meter byte_rate_;
    Rate_meter frame_rate_;
    std::vector<Message> messages_;
    std::deque<Text> recent_;
    std::deque<Reply> replies_;
    Message_lines labelled_{true};
    Message_lines comma_{false};

    std::optional<Position> position_;
    Position_scatter scatter_;
    std::optional<Dilution> dilution_;
    std::optional<Solution> solution_;
    Sky_lists sky_;
    std::optional<Automation> automation_;
};

} // namespace live_view
