#include <support/fakes/Replaced_delays.h>

#include <platform/Atime.h>

#include <chrono>
#include <thread>
#include <utility>

namespace {

std::atomic<Replaced_delays*> replacement{nullptr};

} // namespace

/// Definition of the test program, which the dynamic linker uses instead of the platform's.
void Atime::delay(int units) {
    if (Replaced_delays* const instead = replacement)
        instead->record(units);
    else if (units > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(units));
}

Replaced_delays::Replaced_delays(std::function<void(std::size_t)> action) : meanwhile(std::move(action)) {
    replacement = this;
}

Replaced_delays::~Replaced_delays() {
    replacement = nullptr;
}

std::vector<int> Replaced_delays::units() const {
    const std::lock_guard guard(mutex_);
    return units_;
}

void Replaced_delays::record(int units) {
    {
        const std::lock_guard guard(mutex_);
        units_.push_back(units);
    }
    milliseconds += units;
    const int number = ++count;
    if (meanwhile)
        meanwhile(static_cast<std::size_t>(number));
}
