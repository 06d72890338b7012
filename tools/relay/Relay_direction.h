#pragma once

#include "common/Stream_trace.h"

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/Cbuf.h>

#include <cstdint>

/// One direction of a relay: the bytes that one stream receives are written to the other.
///
/// Between the two lies a buffer of fixed size. When the destination is slower than the source, the buffer fills; then
/// the source's own back-pressure makes its peer wait, and a source that would drop bytes instead is paused. No byte is
/// lost, and the memory stays bounded.
class Relay_direction {
  public:
    static constexpr unsigned buffer_size = 65536;

    /// A stream that bytes are received from or written to, and where its traffic is traced.
    struct End {
        /// \param traced_by  null: not traced here
        End(Event_sender_data_stream& the_stream, Stream_trace* traced_by = nullptr)
            : stream(the_stream), trace(traced_by) {}

        Event_sender_data_stream& stream;
        Stream_trace* trace;
    };

    /// Both ends outlive the direction.
    Relay_direction(End source, End destination);
    /// Resumes a paused source.
    ~Relay_direction();
    Relay_direction(const Relay_direction&) = delete;
    Relay_direction& operator=(const Relay_direction&) = delete;

    /// Moves what can be moved without waiting. \return whether any byte was moved
    bool move();

    /// Whether bytes are buffered that the destination has not accepted.
    bool has_buffered() const { return !buffer_.empty(); }
    /// The number of bytes that the destination has accepted.
    std::uint64_t moved() const { return moved_; }

  private:
    bool read();
    bool write();
    void apply_back_pressure();

    End source_;
    End destination_;
    unsigned char storage_[buffer_size];
    Cbuf_templ<unsigned char> buffer_;
    std::uint64_t moved_ = 0;
    bool paused_ = false;
};
