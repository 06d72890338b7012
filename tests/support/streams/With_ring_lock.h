#pragma once

#include <platform/Mutex.h>

/// A stream that shows whether the lock of its receive ring is held.
///
///     With_ring_lock<TCP_server_data_stream> stream(modules, 0);
template <typename Stream>
struct With_ring_lock : Stream {
    using Stream::Stream;

    /// Whether the ring has a lock and a thread holds it.
    bool ring_is_locked() const { return this->buffer_lock && this->buffer_lock->owner_thread(); }
};
