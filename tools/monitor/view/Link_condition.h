#pragma once

#include <platform/Atime.h>

#include <cstdint>
#include <optional>

namespace live_view {

/// The state of a link as a whole.
enum class Link_state {
    waiting,   ///< no byte was received yet
    looking,   ///< receiving bytes; too early to judge them
    good,      ///< receiving good frames
    rubbish,   ///< receiving bytes that are no frames: most often a wrong baud rate
    sentences, ///< receiving NMEA sentences, but no frames
    silent,    ///< no byte for some time
    ended      ///< no more bytes will follow
};

/// Judges a link by the times at which bytes and good frames were received.
class Link_condition {
  public:
    /// After this time without a byte the link is silent.
    static constexpr std::int64_t silence_ms = 3000;
    /// After this time without a good frame the bytes may be rubbish.
    static constexpr std::int64_t patience_ms = 3000;
    /// Fewer bytes than this prove nothing on a link that has never been good.
    static constexpr std::uint64_t first_proof = 64;
    /// On a link that has been good, a damaged length may hide this many bytes before the next good frame.
    static constexpr std::uint64_t later_proof = 4200;

    // Events, in the order of time
    void bytes_received(std::uint64_t count, Atime now);
    void good_frame_received(Atime now);
    void sentence_received(Atime now) { last_sentence_ = now; }
    void link_ended() { ended_ = true; }

    Link_state state(Atime now) const;
    /// Milliseconds since the last byte; 0 before the first.
    std::int64_t quiet_for(Atime now) const { return last_byte_ ? now - *last_byte_ : 0; }
    /// Whether a good frame or a sentence was ever received.
    bool has_been_good() const { return last_good_ || last_sentence_; }

  private:
    std::optional<Atime> last_byte_;
    std::optional<Atime> last_good_;
    std::optional<Atime> last_sentence_;
    Atime began_; // the first byte, or the first after a silence
    std::uint64_t bytes_since_good_ = 0;
    bool ended_ = false;
};

} // namespace live_view
