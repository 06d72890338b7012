#pragma once

#include <platform/Atime.h>
#include <platform/Cbuf.h>

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

class module_man;

/// One message to a waiter: who sent it and what happened.
struct waiter_event {
    std::int16_t source = 0;     ///< the sender's module id, from `module_man`
    std::uint32_t words[2] = {}; ///< free for sender and receiver to agree on; zero when unused
    int code = 0;                ///< what happened, in the sender's own numbering
    std::uintptr_t target = 0;   ///< what it is about: an address or a number of the receiver's choice
    void* payload = nullptr;     ///< memory from `malloc`, or null; its last holder calls `release_payload`
};

/// Frees the payload of an event, which has none afterwards.
inline void release_payload(waiter_event& event) {
    std::free(std::exchange(event.payload, nullptr));
}

/// A queue of events that one thread waits on and any thread sends to.
///
/// Arrival order is always kept. At most `capacity` events wait: a sender is never blocked by a receiver that has
/// stopped looking. All operations may be called from any thread. Destroy it only when no sender knows it any more;
/// events still waiting are released with their payloads. Nothing is allocated after construction.
class waiter_descriptor {
  public:
    static constexpr unsigned capacity = 1024;

    waiter_descriptor() = default;
    explicit waiter_descriptor(module_man& modules);
    ~waiter_descriptor();
    waiter_descriptor(const waiter_descriptor&) = delete;
    waiter_descriptor& operator=(const waiter_descriptor&) = delete;

    /// Gives the waiter a module id of its own.
    void init(module_man& modules);
    std::int16_t module_id() const { return module_id_; }

    /// Queues `event`, whose payload moves into the queue (`event.payload` is null afterwards).
    ///
    /// When `capacity` events wait already: an event that equals a waiting one in source, code and target is taken as
    /// that one if `merge` allows it; otherwise the oldest event is dropped, counted in `dropped()` and, the
    /// first time, reported through the debug printer.
    /// \param urgent  for makers whose loops have priorities; of no effect here
    /// \return true: the event, or its equal, is in the queue
    bool send_event(waiter_event& event, bool urgent, bool merge);

    /// Takes the oldest event, waiting for one until `deadline`.
    /// \return 0 with the event in `event`, which owns its payload now; 1 when the deadline passed first
    int get_event(waiter_event& event, Atime deadline);

    /// Takes the oldest event, waiting for one without limit.
    /// \return 0
    int get_event(waiter_event& event);

    /// Events waiting.
    unsigned waiting() const;
    /// Events lost because the queue was full.
    unsigned dropped() const;

  private:
    void take_oldest(waiter_event& event);
    bool merge_with_waiting(waiter_event& event);

    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::unique_ptr<waiter_event[]> storage_{new waiter_event[capacity]};
    Cbuf_templ<waiter_event> events_{storage_.get(), capacity};
    unsigned dropped_ = 0;
    std::int16_t module_id_ = 0;
};
