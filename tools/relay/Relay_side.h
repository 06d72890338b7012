#pragma once

#include "Queue_end.h"
#include "Relay_direction.h"

#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <platform/waiter.h>

#include <memory>
#include <string>

/// One side of a relay: the stream that a specification string makes, the transport, with or without AIM frames.
///
///     without "aim,":   transport <-> the relay's directions
///     with "aim,":      transport <-> queue <-> framing adapter <-> the relay's directions
///
/// The queue accepts a frame whole or not at all. Without it the adapter would write to a transport that has no free
/// space for a whole frame, give up in the middle and write the frame again: the receiver then loses both.
class Relay_side {
  public:
    /// \param log     trace the traffic of the transport
    /// \param waiter  notified of received bytes and of free space to write; outlives the side
    /// \return null, after a line on standard error, when the text makes no stream
    static std::unique_ptr<Relay_side> open(const std::string& specification, bool log, waiter_descriptor& waiter);
    ~Relay_side();
    Relay_side(const Relay_side&) = delete;
    Relay_side& operator=(const Relay_side&) = delete;

    /// What a direction reads or writes.
    Relay_direction::End end();

    /// Moves what can be moved between transport and queue without waiting. \return whether any byte was moved
    bool move();
    /// Whether bytes are buffered between transport and adapter.
    bool has_buffered();
    /// Whether the transport will receive no more bytes.
    bool has_ended();

  private:
    explicit Relay_side(std::unique_ptr<Event_sender_data_stream> transport);
    void add_framing(const std::string& specification);

    // Each uses those above it, so the last is destroyed first.
    std::unique_ptr<Event_sender_data_stream> transport_;
    Stream_trace trace_;
    std::unique_ptr<Queue_end> transport_queue_;
    Queue_end* frames_queue_ = nullptr; ///< the other end, which the adapter owns
    std::unique_ptr<AIM_data_stream_adapter> frames_;
    std::unique_ptr<Relay_direction> from_transport_;
    std::unique_ptr<Relay_direction> to_transport_;
};
