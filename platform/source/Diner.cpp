// The states of the loop:
//
//     idle --start--> running --terminate--> ending --the handler returns--> ended
//      |                 ^                                                     ^
//      |                 |                                                     |
//      |             handlers run in this state only                           |
//      |                                                                       |
//      +------------------------------terminate--------------------------------+

#include <platform/Diner.h>

#include <platform/Debug.h>
#include <platform/Timeout.h>
#include <platform/stzncpy.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace {

constexpr int wake_code = -1;
constexpr int patience_units = 1000;

} // namespace

Diner::Descriptor::Descriptor(const char* loop_name, int loop_index) : index(loop_index) {
    stzncpy(name, loop_name, sizeof name);
}

Diner::Diner() : priority_(0), state_(State::idle), first_timeout_(nullptr) {}

Diner::~Diner() {
    terminate(true, patience_units);
    task_.reset(); // the last action of its thread is to release the lock, which is a member
}

// ---- Life cycle ----

void Diner::init(module_man& modules, [[maybe_unused]] Diner_selector* selector, const Descriptor& descriptor,
                 int priority, int stack_size, [[maybe_unused]] bool option_a, [[maybe_unused]] bool option_b) {
    waiter.init(modules);
    priority_ = priority;
    task_.emplace(descriptor.name + std::to_string(descriptor.index), stack_size);
}

bool Diner::start() {
    std::unique_lock<std::mutex> guard(mutex_);
    if (!task_ || state_ != State::idle)
        return false;
    state_ = State::running;
    if (task_->vro_start(priority_, enter, this, false))
        return true;
    state_ = State::idle;
    guard.unlock();
    Debug::Print::critical("Diner %s: cannot start its thread\n", task_->name().c_str());
    return false;
}

void Diner::terminate(bool wait, int units) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (state_ == State::idle)
        state_ = State::ended;
    if (state_ == State::running) {
        state_ = State::ending;
        wake();
    }
    const auto has_ended = [this] { return state_ == State::ended; };
    if (!wait || has_ended() || std::this_thread::get_id() == thread_)
        return;
    if (loop_ended_.wait_for(guard, std::chrono::milliseconds(std::max(units, 0)), has_ended))
        return;
    guard.unlock();
    Debug::Print::critical("Diner %s: a handler has not returned for %d ms since the loop is to end\n",
                           task_->name().c_str(), units);
    guard.lock();
    loop_ended_.wait(guard, has_ended);
}

void* Diner::enter(void* self) {
    Diner& loop = *static_cast<Diner*>(self);
    {
        const std::lock_guard guard(loop.mutex_);
        loop.thread_ = std::this_thread::get_id();
    }
    loop.run_main_loop();
    const std::lock_guard guard(loop.mutex_);
    loop.state_ = State::ended;
    loop.loop_ended_.notify_all();
    return nullptr;
}

bool Diner::is_ending() const {
    const std::lock_guard guard(mutex_);
    return state_ != State::running;
}

bool Diner::is_locked() const {
    const std::lock_guard guard(mutex_);
    return state_ == State::idle || state_ == State::ended || std::this_thread::get_id() == thread_;
}

// ---- The loop ----

void Diner::run_main_loop() {
    diner_start();
    while (!is_ending()) {
        handle_next_event();
        if (!is_ending())
            handle_timeout();
    }
    diner_stop();
}

void Diner::diner_start() {}

void Diner::diner_stop() {}

/// Waits for an event, until the next timeout if there is one, and handles it.
void Diner::handle_next_event() {
    waiter_event event;
    const std::optional<Atime> limit = next_timeout();
    const int timed_out = limit ? waiter.get_event(event, *limit) : waiter.get_event(event);
    if (timed_out)
        return;
    if (!is_wake_event(event) && !is_ending())
        handle_event(event);
    release_payload(event);
}

/// Makes the loop check its state and its timeouts, which it does after every event: when an event waits already, no
/// other is needed.
void Diner::wake() {
    if (waiter.waiting() != 0)
        return;
    waiter_event event;
    event.source = waiter.module_id();
    event.code = wake_code;
    event.target = reinterpret_cast<std::uintptr_t>(this);
    waiter.send_event(event, true, true);
}

bool Diner::is_wake_event(const waiter_event& event) const {
    return event.source == waiter.module_id() && event.code == wake_code &&
           event.target == reinterpret_cast<std::uintptr_t>(this);
}

// ---- Timeouts ----

void Diner::handle_timeout() {
    Timeout* due = nullptr;
    {
        const std::lock_guard guard(mutex_);
        if (!first_timeout_ || first_timeout_->when_ > Atime::now())
            return;
        due = first_timeout_;
        remove(*due);
    }
    handle_timeout(*due);
}

std::optional<Atime> Diner::next_timeout() const {
    const std::lock_guard guard(mutex_);
    return first_timeout_ ? std::optional<Atime>(first_timeout_->when_) : std::nullopt;
}

void Diner::set(Timeout& timeout, int units) {
    const std::lock_guard guard(mutex_);
    remove(timeout);
    timeout.when_ = Atime::now() + units;
    insert(timeout);
    if (first_timeout_ == &timeout && std::this_thread::get_id() != thread_)
        wake();
}

void Diner::cancel(Timeout& timeout) {
    const std::lock_guard guard(mutex_);
    remove(timeout);
}

/// Inserts it after those that expire earlier or at the same time.
void Diner::insert(Timeout& timeout) {
    Timeout** link = &first_timeout_;
    while (*link && (*link)->when_ <= timeout.when_)
        link = &(*link)->next_;
    timeout.next_ = *link;
    *link = &timeout;
    timeout.set_ = true;
}

void Diner::remove(Timeout& timeout) {
    if (!timeout.set_)
        return;
    Timeout** link = &first_timeout_;
    while (*link != &timeout)
        link = &(*link)->next_;
    *link = timeout.next_;
    timeout.set_ = false;
}

Timeout::~Timeout() {
    cancel();
}

void Timeout::set(int units) {
    loop_->set(*this, units);
}

void Timeout::cancel() {
    loop_->cancel(*this);
}

bool Timeout::pending() const {
    const std::lock_guard guard(loop_->mutex_);
    return set_;
}
