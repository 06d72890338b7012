#include <platform/waiter.h>

#include <platform/Debug.h>
#include <platform/module_man.h>

#include <algorithm>
#include <chrono>

namespace {

constexpr std::int64_t longest_step = 3600000; // units: an hour

} // namespace

waiter_descriptor::waiter_descriptor(module_man& modules) {
    init(modules);
}

waiter_descriptor::~waiter_descriptor() {
    waiter_event event;
    while (!events_.empty()) {
        take_oldest(event);
        release_payload(event);
    }
}

void waiter_descriptor::init(module_man& modules) {
    modules.init_module(&module_id_, false);
}

bool waiter_descriptor::send_event(waiter_event& event, [[maybe_unused]] bool urgent, bool merge) {
    waiter_event lost;
    bool first_loss = false;
    {
        const std::lock_guard guard(mutex_);
        if (events_.full()) {
            if (merge && merge_with_waiting(event))
                return true;
            take_oldest(lost);
            first_loss = dropped_++ == 0;
        }
        events_.push(event);
        event.payload = nullptr;
    }
    arrived_.notify_one();
    release_payload(lost);
    if (first_loss)
        Debug::Print::critical("waiter %p (module %d): %u events wait, the oldest is dropped\n",
                               static_cast<void*>(this), module_id_, capacity);
    return true;
}

int waiter_descriptor::get_event(waiter_event& event, Atime deadline) {
    std::unique_lock<std::mutex> guard(mutex_);
    while (events_.empty()) {
        using std::chrono::milliseconds;
        using std::chrono::steady_clock;
        const auto now = std::chrono::floor<milliseconds>(steady_clock::now().time_since_epoch());
        if (now.count() >= deadline.units())
            return 1;
        // In bounded steps: a deadline may be later than the system's clocks can represent.
        const milliseconds step(std::min(deadline.units(), now.count() + longest_step));
        arrived_.wait_until(guard, steady_clock::time_point(step));
    }
    take_oldest(event);
    return 0;
}

int waiter_descriptor::get_event(waiter_event& event) {
    std::unique_lock<std::mutex> guard(mutex_);
    arrived_.wait(guard, [this] { return !events_.empty(); });
    take_oldest(event);
    return 0;
}

unsigned waiter_descriptor::waiting() const {
    const std::lock_guard guard(mutex_);
    return events_.size();
}

unsigned waiter_descriptor::dropped() const {
    const std::lock_guard guard(mutex_);
    return dropped_;
}

void waiter_descriptor::take_oldest(waiter_event& event) {
    event = events_.at(0);
    events_.consume(1);
}

bool waiter_descriptor::merge_with_waiting(waiter_event& event) {
    for (unsigned i = 0; i < events_.size(); ++i) {
        const waiter_event waiting = events_.at(i);
        if (waiting.source == event.source && waiting.code == event.code && waiting.target == event.target) {
            release_payload(event);
            return true;
        }
    }
    return false;
}
