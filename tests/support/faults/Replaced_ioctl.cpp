#include <support/faults/Replaced_ioctl.h>

#include <support/faults/in_c_library.h>

#include <cstdarg>
#include <sys/ioctl.h>

namespace {

const Replaced_ioctl* first = nullptr; // set up before main

} // namespace

Replaced_ioctl::Replaced_ioctl(Ioctl_answer how) : answer_(how), next_(first) {
    first = this;
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    static const auto original = in_c_library(ioctl);
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    int result = 0;
    for (const Replaced_ioctl* instead = first; instead; instead = instead->next())
        if (instead->answer(fd, request, argument, result))
            return result;
    return original(fd, request, argument);
}
