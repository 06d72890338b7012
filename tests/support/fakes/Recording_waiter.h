#pragma once

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdint>
#include <vector>

/// A waiter that records its events: register it with a stream, then check `codes()` and `sources()`.
class Recording_waiter {
  public:
    explicit Recording_waiter(module_man& modules) : descriptor_(modules) {}
    Recording_waiter() = default;

    waiter_descriptor* waiter() { return &descriptor_; }
    operator waiter_descriptor*() { return &descriptor_; }

    /// Everything that has arrived so far, oldest first. The payloads are freed and null.
    const std::vector<waiter_event>& events();
    std::vector<int> codes();
    std::vector<std::int16_t> sources();

    /// Forgets what has arrived so far.
    void clear();

    /// Waits until `count` events have arrived since the last `clear`.
    /// \return whether they have, within `limit_ms`
    bool wait_for(std::size_t count, int limit_ms = 20000);

  private:
    bool receive_one(Atime deadline);

    waiter_descriptor descriptor_;
    std::vector<waiter_event> events_;
};
