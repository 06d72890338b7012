// States of the adapter's ring. Its lock is held for every step except the notification of the rx waiter.
//
//              event of the raw stream, fetch, drop:
//              take frames until one has a payload
//                           |
//        +---------+        | a payload          +----------------+
//        |  empty  | ------------------------->  |  holds bytes   | --+  event of the raw stream, drop:
//        +---------+                             +----------------+   |  notify the rx waiter
//           |   ^ ^                                  |         ^      |
//           +---+ +----------------------------------+         +------+
//      no whole frame        the last byte is dropped

#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <glue/data_stream/AIM_message.h>

#include "data_stream/adapter/adapting.h"

#include <platform/Debug.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

using glue_detail::adapter_traces;

namespace {

/// Categories that change what follows reading without the lock: a report only; nothing at all.
constexpr unsigned no_abort = 43;
constexpr unsigned no_report = 44;

// Arguments of the loop; the platform defines their meaning.
constexpr int loop_priority = 44;
constexpr int loop_stack_size = 25600;
constexpr int loop_end_units = 1000;

std::atomic<int> next_index{0};

void trace(const char* label, const unsigned char* bytes, unsigned int len) {
    if (!Debug::Print::enabled(adapter_traces))
        return;
    Debug::Print::dprint_ts("%s (%d): ", label, static_cast<int>(len));
    Debug::Print::printascii(bytes, len);
    Debug::Print::dprint("\n");
}

} // namespace

AIM_data_stream_adapter::AIM_data_stream_adapter(module_man& modules,
                                                 std::unique_ptr<Event_sender_data_stream> raw_stream,
                                                 char written_channel)
    : Pushed_data_stream(nullptr, mutex_),
      raw_(std::move(raw_stream)),
      parser_(raw_.get(), true),
      channel_(written_channel) {
    Diner::init(modules, nullptr, Descriptor("ADSA", next_index++), loop_priority, loop_stack_size, true, false);
    raw_->reg_rx_waiter(&waiter, false);
    raw_->reg_tx_waiter(&waiter, false);
    raw_->init(modules);
    Diner::start();
}

AIM_data_stream_adapter::~AIM_data_stream_adapter() {
    Diner::terminate(true, loop_end_units);
}

// ---- Reading ----

int AIM_data_stream_adapter::get_data(int n) {
    check_lock();
    refill();
    return rx_buffer.size() >= static_cast<unsigned int>(n); // unsigned: nothing satisfies a negative one
}

/// Ends the process when the calling thread does not hold the lock.
void AIM_data_stream_adapter::check_lock() const {
    enum Status { lock_free, held_by_caller, held_by_another };
    Status status = held_by_caller;
    if (buffer_lock->try_lock()) {
        buffer_lock->unlock();
        status = lock_free;
    } else if (buffer_lock->owner_thread() != QThread::currentThreadId()) {
        status = held_by_another;
    }
    if (status == held_by_caller || Debug::Print::enabled(no_report))
        return;
    Debug::Print::print_backtrace("Bad mutex status: %d, wanted: %d %p %p", status, held_by_caller,
                                  buffer_lock->owner_thread(), QThread::currentThreadId());
    if (!Debug::Print::enabled(no_abort))
        std::abort();
}

void AIM_data_stream_adapter::drop(unsigned int n) {
    Data_stream::drop(n);
    Lock held(mutex_);
    refill();
    if (Debug::Print::enabled(adapter_traces))
        Debug::Print::dprint_ts("ADSA: Drop complete. Refilled to %d.  Raw stream has %d\n",
                                static_cast<int>(rx_buffer.size()), static_cast<int>(raw_->bytes_avail()));
    notify_reader(held);
}

void AIM_data_stream_adapter::drop_all() {
    Debug::Print::print_ts(adapter_traces, "ADSA: drop_all.\n");
    bool more = true;
    while (more) {
        const Lock held(mutex_); // for both steps: the loop's thread must not refill the ring between them
        rx_buffer.clear();
        more = _get_data();
    }
}

void AIM_data_stream_adapter::handle_event(waiter_event&) {
    Lock held(mutex_);
    refill();
    notify_reader(held);
}

void AIM_data_stream_adapter::handle_timeout(Timeout&) {}

bool AIM_data_stream_adapter::has_ended() {
    if (!raw_->has_ended())
        return false;
    const Lock held(mutex_);
    unsigned int left;
    do { // a reply or an acknowledgement between frames ends each refill
        left = raw_->bytes_avail();
        refill();
    } while (rx_buffer.empty() && raw_->bytes_avail() < left);
    return rx_buffer.empty();
}

/// Takes frames until the ring holds bytes or no more frames can be taken. The lock is held.
void AIM_data_stream_adapter::refill() {
    while (rx_buffer.empty() && _get_data()) {
    }
}

/// Notifies the rx waiter, after releasing the lock, when the ring holds bytes.
void AIM_data_stream_adapter::notify_reader(Lock& held) {
    if (rx_buffer.empty())
        return;
    const bool full = rx_buffer.full();
    held.unlock();
    send_rx_event(full);
}

/// Takes one packet from the raw stream; the lock is held. \return whether the caller should take another
bool AIM_data_stream_adapter::_get_data() {
    unsigned char packet[packet_size];
    const int len = parser_.get_packet(packet, static_cast<int>(sizeof packet));
    if (len == 0)
        return false;
    if (len < 0) {
        trace("ADSA discards rubbish ", packet, static_cast<unsigned int>(-len));
        return raw_->bytes_avail() != 0;
    }

    Vesk_message message(packet, sizeof packet, static_cast<unsigned int>(len));
    if (!message.validate(AIM_message::identifier) || message.get_msg_len() < AIM_message::shortest_body) {
        _dprint("Unexpected non AIM data read\n", 0, 0);
        return raw_->bytes_avail() != 0;
    }
    const AIM_message frame(message);
    trace("ADSA reads ", frame.get_data(), frame.get_len());
    rx_buffer.append(frame.get_data(), frame.get_len()); // payload that does not fit is lost
    return true;
}

// ---- Writing ----

int AIM_data_stream_adapter::_write(const unsigned char* buf, unsigned int n) {
    trace("ADSA writes", buf, n);
    if (n > static_cast<unsigned int>(std::numeric_limits<int>::max()) - AIM_message::overhead)
        return 0;
    const unsigned int size = AIM_message::calc_buffer_size(n);
    unsigned char on_stack[build_size];
    if (size <= sizeof on_stack)
        return write_frame(on_stack, size, buf, n) ? static_cast<int>(n) : 0;
    // Filled with zeros: length digits that are not written must not disclose what was in the memory before.
    const std::unique_ptr<unsigned char[]> on_heap(new (std::nothrow) unsigned char[size]());
    return on_heap && write_frame(on_heap.get(), size, buf, n) ? static_cast<int>(n) : 0;
}

bool AIM_data_stream_adapter::write_frame(unsigned char* buffer, unsigned int size, const unsigned char* payload,
                                          unsigned int n) {
    AIM_message frame(buffer, size);
    frame.set(static_cast<unsigned char>(channel_), payload, n);
    return raw_->write(frame, true);
}
