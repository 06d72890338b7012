#pragma once

#include <chrono>
#include <ctime>
#include <thread>

/// CPU time that the whole process has used so far.
inline std::chrono::nanoseconds processor_time() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// CPU time that the whole process uses during `span`, while the calling thread sleeps.
inline std::chrono::nanoseconds cpu_time_during(std::chrono::milliseconds span) {
    const auto before = processor_time();
    std::this_thread::sleep_for(span);
    return processor_time() - before;
}
