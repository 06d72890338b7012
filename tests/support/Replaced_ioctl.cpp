#include <support/Replaced_ioctl.h>

#include <atomic>
#include <cstdarg>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

namespace {

std::atomic<Ioctl_replacement> current{nullptr};

} // namespace

void replace_ioctl(Ioctl_replacement replacement) {
    const Ioctl_replacement before = current.exchange(replacement);
    EXPECT_TRUE(!before || !replacement);
}

// The program's own definition wins over that of the shared libraries.

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    using Original = int(int, unsigned long, ...);
    static const auto original = reinterpret_cast<Original*>(dlsym(RTLD_NEXT, "ioctl"));
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const Ioctl_replacement replacement = current;
    const auto answer = replacement ? replacement(fd, request, argument) : std::nullopt;
    return answer ? *answer : original(fd, request, argument);
}
