#pragma once

#include <glue/data_stream/Virtual_pair_data_stream.h>

/// The two ends of a virtual pair, and the lock that they share.
struct Open_pair {
    bool locked() const { return lock.owner_thread() != nullptr; }

    Mutex lock;
    Virtual_pair_data_stream_part a{nullptr, b, lock};
    Virtual_pair_data_stream_part b{nullptr, a, lock};
};
