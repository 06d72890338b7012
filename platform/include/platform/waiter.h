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

/// A message to a waiter: its sender and what happened.
struct waiter_event {
    std::int16_t source = 0;     ///< the sender's module id, from `module_man`
    std::uint32_t words[2] = {}; ///< whatever sender and receiver agree on; zero when unused
    int code = 0;                ///< what happened, in the sender's numbering
    std::uintptr_t target = 0;   ///< its object: an address or a number that the receiver chose
    void* payload = nullptr;     ///< memory from `malloc`, or null; its last holder calls `release_payload`
};

/// Frees the payload of an event, which has none afterwards.
inline void release_payload(waiter_event& event) {
    std::free(std::exchange(event.payload, nullptr));
}

/// A queue of events: one thread receives them, any thread sends them.
///
/// The order of arrival is always kept. At most `capacity` events wait: a receiver that has stopped never blocks a
/// sender. All operations may be called from any thread. Destroy it only when no sender uses it any longer; the
/// payloads of waiting events are freed. Nothing is allocated after construction.
class waiter_descriptor {
  public:
    static constexpr unsigned capacity = 1024;

    waiter_descriptor() = default;
    explicit waiter_descriptor(module_man& modules);
    ~waiter_descriptor();
    waiter_descriptor(const waiter_descriptor&) = delete;
    waiter_descriptor& operator=(const waiter_descriptor&) = delete;

    /// Assigns the waiter its own module id.
    void init(module_man& modules);
    std::int16_t module_id() const { return module_id_; }

    /// Queues `event`, whose payload moves into the queue (`event.payload` is null afterwards).
    ///
    /// When the queue is full: if `merge` is set and an event with the same source, code and target waits, the new one
    /// is discarded; otherwise the oldest event is dropped, counted in `dropped()` and, the first time, reported
    /// through the debug printer.
    /// \param urgent  for makers whose loops have priorities; no effect here
    /// \return true: the event, or its equal, is in the queue
    bool send_event(waiter_event& event, bool urgent, bool merge);

    /// Removes the oldest event; waits for one until `deadline`.
    /// \return 0 with the event in `event`, which owns the payload now; 1 when the deadline passed first
    int get_event(waiter_event& event, Atime deadline);

    /// Removes the oldest event; waits for one without a time limit.
    /// \return 0
    int get_event(waiter_event& event);

    /// Number of waiting events.
    unsigned waiting() const;
    /// Number of events that were dropped because the queue was full.
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
