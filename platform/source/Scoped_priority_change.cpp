#include <platform/Scoped_priority_change.h>

#include <pthread.h>
#include <sched.h>

namespace {

bool set_policy(int policy) {
    const sched_param parameters{}; // the only priority that both policies have: 0
    return pthread_setschedparam(pthread_self(), policy, &parameters) == 0;
}

} // namespace

/// A thread with a priority of its own keeps it: the maker has chosen it.
Scoped_priority_change::Scoped_priority_change() : policy_before_(SCHED_OTHER), changed_(false) {
    sched_param parameters{};
    if (pthread_getschedparam(pthread_self(), &policy_before_, &parameters) == 0 && policy_before_ == SCHED_OTHER)
        changed_ = set_policy(SCHED_BATCH);
}

Scoped_priority_change::~Scoped_priority_change() {
    if (changed_)
        set_policy(policy_before_);
}
