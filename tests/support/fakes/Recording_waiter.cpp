#include <support/fakes/Recording_waiter.h>

bool Recording_waiter::receive_one(Atime deadline) {
    waiter_event event;
    if (descriptor_.get_event(event, deadline) != 0)
        return false;
    release_payload(event);
    events_.push_back(event);
    return true;
}

const std::vector<waiter_event>& Recording_waiter::events() {
    while (descriptor_.waiting() != 0)
        receive_one(Atime());
    return events_;
}

std::vector<int> Recording_waiter::codes() {
    std::vector<int> result;
    for (const waiter_event& event : events())
        result.push_back(event.code);
    return result;
}

std::vector<std::int16_t> Recording_waiter::sources() {
    std::vector<std::int16_t> result;
    for (const waiter_event& event : events())
        result.push_back(event.source);
    return result;
}

void Recording_waiter::clear() {
    events();
    events_.clear();
}

bool Recording_waiter::wait_for(std::size_t count, int limit_ms) {
    const Atime deadline = Atime::now() + limit_ms;
    while (events().size() < count)
        if (!receive_one(deadline))
            return false;
    return true;
}
