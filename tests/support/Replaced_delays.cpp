#include <support/Replaced_delays.h>

#include <platform/Atime.h>

#include <dlfcn.h>

namespace {

Replaced_delays* replacement = nullptr;

} // namespace

/// The test program's own, which the dynamic linker takes instead of the platform's.
void Atime::delay(int units) {
    using Delay = void (*)(int);
    static const auto original = reinterpret_cast<Delay>(dlsym(RTLD_NEXT, "_ZN5Atime5delayEi"));
    if (!replacement) {
        original(units);
        return;
    }
    ++replacement->count;
    replacement->milliseconds += units;
    if (replacement->meanwhile)
        replacement->meanwhile();
}

Replaced_delays::Replaced_delays() {
    replacement = this;
}

Replaced_delays::~Replaced_delays() {
    replacement = nullptr;
}
