#pragma once

#include "Queue_end.h"
#include "Relay_direction.h"

#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <platform/waiter.h>

#include <memory>
#include <string>

/// One side of a relay: the stream that a specification makes.
///
/// Where the text asks for AIM frames, the framing adapter stands over a queue, and bytes are moved between the queue
/// and the transport. Straight over a transport without room for a whole frame the adapter would begin it, give it up,
/// and write it again: its reader then loses both.
class Relay_side {
  public:
    /// \param log      trace the traffic of the transport
    /// \param waiter   told of what arrives and of room to write; outlives the side
    /// \return null, after a line on standard error, when the text makes no stream
    static std::unique_ptr<Relay_side> open(const std::string& specification, bool log, waiter_descriptor& waiter);
    ~Relay_side();
    Relay_side(const Relay_side&) = delete;
    Relay_side& operator=(const Relay_side&) = delete;

    /// What a direction reads or writes.
    Relay_direction::End end();

    /// Moves what can be moved at once between queue and transport. \return whether anything was
    bool move();
    /// Whether there is something on the way between queue and transport.
    bool has_waiting();
    /// Whether nothing will come from the transport any more.
    bool has_ended() const;

  private:
    explicit Relay_side(std::unique_ptr<Event_sender_data_stream> transport);
    void put_frames_over(const std::string& specification);

    // In the order in which they are needed: the last goes first.
    std::unique_ptr<Event_sender_data_stream> transport_;
    Stream_trace trace_;
    std::unique_ptr<Queue_end> queue_;
    Queue_end* frames_queue_ = nullptr; ///< the other end of it, which is the adapter's
    std::unique_ptr<AIM_data_stream_adapter> frames_;
    std::unique_ptr<Relay_direction> inwards_;
    std::unique_ptr<Relay_direction> outwards_;
};
