#pragma once

#include "common/Stream_trace.h"

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/Cbuf.h>

#include <cstdint>

/// One direction of a relay: what one stream receives is written to the other, byte for byte.
///
/// Between the two lies a buffer of fixed size. When the destination is slower the buffer fills, and then the source's
/// own back-pressure holds its peer back; a source that would rather lose bytes than wait is paused. Nothing is lost
/// and memory stays bounded.
class Relay_direction {
  public:
    static constexpr unsigned buffer_size = 65536;

    /// Where bytes come from or go to, and who is told of them.
    struct End {
        End(Event_sender_data_stream& the_stream, Stream_trace* told = nullptr) : stream(the_stream), trace(told) {}

        Event_sender_data_stream& stream;
        Stream_trace* trace;
    };

    /// Both ends outlive this.
    Relay_direction(End source, End destination);
    /// Lets a paused source go on.
    ~Relay_direction();
    Relay_direction(const Relay_direction&) = delete;
    Relay_direction& operator=(const Relay_direction&) = delete;

    /// Moves what can be moved at once. \return whether anything was
    bool move();

    /// Whether bytes wait that the destination has not taken.
    bool has_waiting() const { return !buffer_.empty(); }
    /// Bytes that the destination has taken.
    std::uint64_t moved() const { return moved_; }

  private:
    bool take();
    bool give();
    void hold_source_back();

    End source_;
    End destination_;
    unsigned char storage_[buffer_size];
    Cbuf_templ<unsigned char> buffer_;
    std::uint64_t moved_ = 0;
    bool paused_ = false;
};
