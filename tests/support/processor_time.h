#pragma once

#include <chrono>
#include <ctime>

/// What the whole process has taken of the processors so far.
inline std::chrono::nanoseconds processor_time() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}
