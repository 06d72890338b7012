#include <support/Replaced_calls.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

Replaced_calls* replaced = nullptr;

template <typename Function>
Function* in_c_library(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

Replaced_calls::Replaced_calls() {
    EXPECT_EQ(replaced, nullptr);
    replaced = this;
}

Replaced_calls::~Replaced_calls() {
    replaced = nullptr;
}

// The program's own definitions win over those of the shared libraries.

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* left) {
    static const auto original = in_c_library<decltype(select)>("select");
    if (replaced && replaced->select)
        return replaced->select(left);
    return original(count, readable, writable, exceptional, left);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int limit) {
    static const auto original = in_c_library<decltype(poll)>("poll");
    if (replaced && replaced->poll)
        return replaced->poll(descriptors, count);
    return original(descriptors, count, limit);
}

extern "C" int gettimeofday(timeval* now, void* zone) noexcept {
    static const auto original = in_c_library<int(timeval*, void*)>("gettimeofday");
    if (!replaced || !replaced->wall_clock_ms)
        return original(now, zone);
    const long ms = replaced->wall_clock_ms();
    now->tv_sec = ms / 1000;
    now->tv_usec = ms % 1000 * 1000;
    return 0;
}
