#include <support/fakes/Replaced_waits.h>

#include <QSemaphore>

#include <dlfcn.h>

namespace {

Replaced_waits* replacement = nullptr;

bool really_wait(QSemaphore* semaphore, int n, int timeout) {
    using Wait = bool (*)(QSemaphore*, int, int);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "_ZN10QSemaphore10tryAcquireEii"));
    return wait(semaphore, n, timeout);
}

} // namespace

/// Definition of the test program, which the dynamic linker uses instead of Qt's.
bool QSemaphore::tryAcquire(int n, int timeout) {
    if (!replacement)
        return really_wait(this, n, timeout);
    replacement->limits.push_back(timeout);
    if (replacement->meanwhile)
        replacement->meanwhile();
    return tryAcquire(n);
}

Replaced_waits::Replaced_waits() {
    replacement = this;
}

Replaced_waits::~Replaced_waits() {
    replacement = nullptr;
}
