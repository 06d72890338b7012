#pragma once

#include <chrono>
#include <ctime>
#include <thread>

/// Processor time that the whole process uses during `span` while the calling thread sleeps.
inline std::chrono::nanoseconds cpu_time_during(std::chrono::milliseconds span) {
    const auto used = [] {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = used();
    std::this_thread::sleep_for(span);
    return used() - before;
}
