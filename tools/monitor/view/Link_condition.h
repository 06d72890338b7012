#pragma once

#include <platform/Atime.h>

#include <cstdint>
#include <optional>

namespace live_view {

/// What can be said about a link as a whole.
enum class Link_state {
    waiting,   ///< no byte has come yet
    looking,   ///< bytes come; whether they make sense is not clear yet
    good,      ///< good frames come
    rubbish,   ///< bytes come that are no frames: most often a wrong baud rate
    sentences, ///< bytes come that are NMEA sentences, but no frames
    silent,    ///< nothing comes any more
    ended      ///< nothing will come any more
};

/// Judges a link by when bytes and good frames came.
class Link_condition {
  public:
    /// Without a byte for so long the link is silent.
    static constexpr std::int64_t silence_ms = 3000;
    /// Without a good frame for so long bytes are no longer taken for good ones.
    static constexpr std::int64_t patience_ms = 3000;
    /// Fewer bytes than these prove nothing on a link that has never been good.
    static constexpr std::uint64_t first_proof = 64;
    /// On one that has, a frame with a garbled length may swallow this many before the next is seen.
    static constexpr std::uint64_t later_proof = 4200;

    // To be told in the order of time.
    void bytes_came(std::uint64_t count, Atime now);
    void good_frame_came(Atime now);
    void sentence_came(Atime now) { last_sentence_ = now; }
    void link_ended() { ended_ = true; }

    Link_state state(Atime now) const;
    /// Milliseconds since the last byte; 0 before the first.
    std::int64_t quiet_for(Atime now) const { return last_byte_ ? now - *last_byte_ : 0; }
    /// Whether a good frame or sentence has ever come.
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
