#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <mutex>
#include <utility>

Event_sender_data_stream::Event_sender_data_stream(module_man* modules)
    : module_id_(0), rx_waiter_(nullptr), tx_waiter_(nullptr), rx_quiet_(false), tx_quiet_(false) {
    if (modules)
        Event_sender_data_stream::init(*modules);
}

Event_sender_data_stream::~Event_sender_data_stream() = default;

void Event_sender_data_stream::init(module_man& modules) {
    const std::lock_guard guard(*this);
    std::int16_t id = 0;
    modules.init_module(&id, false);
    module_id_ = id;
}

void Event_sender_data_stream::lock() {}

void Event_sender_data_stream::unlock() {}

void Event_sender_data_stream::send_rx_event(bool full) {
    if (rx_callback_)
        rx_callback_();
    const std::lock_guard notification(notification_);
    waiter_descriptor* const waiter = rx_waiter_;
    if (waiter && (full || !rx_quiet_))
        send(*waiter, full ? rx_full_event : rx_event, false, true);
}

void Event_sender_data_stream::send_tx_event(bool flag) {
    const std::lock_guard notification(notification_);
    waiter_descriptor* const waiter = tx_waiter_;
    if (waiter && (flag || !tx_quiet_))
        send(*waiter, flag ? tx_flag_event : tx_event, true, false);
}

void Event_sender_data_stream::send(waiter_descriptor& waiter, event_code code, bool urgent, bool merge) const {
    waiter_event event;
    event.source = module_id_;
    event.code = code;
    waiter.send_event(event, urgent, merge);
    release_payload(event); // unless the waiter owns it now
}

void Event_sender_data_stream::reg_rx_waiter(waiter_descriptor* waiter, bool quiet) {
    {
        const std::lock_guard guard(*this);
        rx_quiet_ = quiet;
        rx_waiter_ = waiter;
    }
    wait_for_notification();
}

void Event_sender_data_stream::dereg_rx_waiter() {
    {
        const std::lock_guard guard(*this);
        rx_waiter_ = nullptr;
    }
    wait_for_notification();
}

void Event_sender_data_stream::reg_tx_waiter(waiter_descriptor* waiter, bool quiet) {
    {
        const std::lock_guard guard(*this);
        tx_quiet_ = quiet;
        tx_waiter_ = waiter;
    }
    wait_for_notification();
}

void Event_sender_data_stream::dereg_tx_waiter() {
    {
        const std::lock_guard guard(*this);
        tx_waiter_ = nullptr;
    }
    wait_for_notification();
}

/// Returns when no other thread is notifying a waiter that it read before the call.
void Event_sender_data_stream::wait_for_notification() {
    const std::lock_guard notification(notification_);
}

void Event_sender_data_stream::set_rx_callback(std::function<void()> callback) {
    rx_callback_ = std::move(callback);
}

bool Event_sender_data_stream::pause() {
    return false;
}

void Event_sender_data_stream::resume() {}

bool Event_sender_data_stream::has_ended() {
    return false;
}

bool Event_sender_data_stream::traces_itself() const {
    return false;
}
