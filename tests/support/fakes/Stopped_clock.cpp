#include <support/fakes/Stopped_clock.h>

#include <platform/Atime.h>

#include <atomic>
#include <chrono>

namespace {

constexpr std::int64_t running = -1;
std::atomic<std::int64_t> stopped_at{running};

std::int64_t real_now() {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count();
}

} // namespace

/// Definition of the test program, which the dynamic linker uses instead of the platform's.
Atime Atime::now() {
    const std::int64_t stopped = stopped_at;
    return Atime(stopped == running ? real_now() : stopped);
}

Stopped_clock::Stopped_clock() {
    stopped_at = real_now();
}

Stopped_clock::~Stopped_clock() {
    stopped_at = running;
}

void Stopped_clock::advance(int ms) {
    stopped_at += ms;
}
