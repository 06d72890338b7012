#include <platform/Debug.h>
#include <platform/module_man.h>
#include <platform/waiter.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::int64_t longest_step = 3600 * 1000;

} // namespace

waiter_descriptor::waiter_descriptor(module_man& modules) {
    init(modules);
}

waiter_descriptor::~waiter_descriptor() {
    for (waiter_event& event : events_)
        std::free(event.payload);
}

void waiter_descriptor::init(module_man& modules) {
    modules.init_module(&module_id_, false);
}

bool waiter_descriptor::send_event(waiter_event& event, [[maybe_unused]] bool urgent, bool merge) {
    void* lost_payload = nullptr;
    bool first_loss = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (events_.size() >= capacity) {
            if (merge && merge_with_waiting(event))
                return true;
            lost_payload = events_.front().payload;
            events_.pop_front();
            first_loss = dropped_++ == 0;
        }
        events_.push_back(event);
        event.payload = nullptr;
    }
    arrived_.notify_one();
    std::free(lost_payload);
    if (first_loss)
        Debug::Print::critical("waiter %p (module %d): %u events wait, the oldest is dropped\n",
                               static_cast<void*>(this), module_id_, capacity);
    return true;
}

int waiter_descriptor::get_event(waiter_event& event, Atime deadline) {
    std::unique_lock<std::mutex> guard(mutex_);
    while (events_.empty()) {
        const Atime now = Atime::now();
        if (now >= deadline)
            return 1;
        // In bounded steps: a deadline may lie further ahead than the system's clocks can say.
        const Atime step = std::min(deadline, now + longest_step);
        arrived_.wait_until(guard, std::chrono::steady_clock::time_point(std::chrono::milliseconds(step.units())));
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
    const std::lock_guard<std::mutex> guard(mutex_);
    return static_cast<unsigned>(events_.size());
}

unsigned waiter_descriptor::dropped() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return dropped_;
}

void waiter_descriptor::take_oldest(waiter_event& event) {
    event = events_.front();
    events_.pop_front();
}

bool waiter_descriptor::merge_with_waiting(waiter_event& event) {
    const bool found = std::any_of(events_.begin(), events_.end(), [&event](const waiter_event& waiting) {
        return waiting.source == event.source && waiting.code == event.code && waiting.target == event.target;
    });
    if (found)
        std::free(std::exchange(event.payload, nullptr));
    return found;
}
