#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <platform/Atime.h>

#include <algorithm>

namespace {

/// The most bytes that one step of a fetch moves.
constexpr unsigned int fetch_step = 256;
/// A wait lasts a multiple of this many milliseconds.
constexpr int wait_step_ms = 10;

} // namespace

Virtual_pair_data_stream_part::Virtual_pair_data_stream_part(module_man* modules,
                                                             Virtual_pair_data_stream_part& other_end,
                                                             Mutex& lock_of_both)
    : Event_sender_data_stream(modules),
      read_timeout_ms_(default_timeout_ms),
      write_timeout_ms_(default_timeout_ms),
      transfer_ring_(transfer_storage_, transfer_capacity),
      peer_(other_end),
      pair_lock_(lock_of_both) {}

Virtual_pair_data_stream_part::~Virtual_pair_data_stream_part() = default;

void Virtual_pair_data_stream_part::lock() {
    pair_lock_.lock();
}

void Virtual_pair_data_stream_part::unlock() {
    pair_lock_.unlock();
}

void Virtual_pair_data_stream_part::flush() {
    const Lock held(pair_lock_);
    transfer_ring_.clear();
}

int Virtual_pair_data_stream_part::set_read_timeout(int ms) {
    return store(read_timeout_ms_, ms);
}

int Virtual_pair_data_stream_part::set_default_read_timeout() {
    return store(read_timeout_ms_, default_timeout_ms);
}

int Virtual_pair_data_stream_part::set_write_timeout(int ms) {
    return store(write_timeout_ms_, ms);
}

int Virtual_pair_data_stream_part::set_default_write_timeout() {
    return store(write_timeout_ms_, default_timeout_ms);
}

int Virtual_pair_data_stream_part::store(std::int32_t& timeout, int ms) {
    const Lock held(pair_lock_);
    timeout = ms;
    return true;
}

int Virtual_pair_data_stream_part::_write(const unsigned char* data, unsigned int len) {
    const Atime start = Atime::now();
    Lock held(pair_lock_);
    const Atime deadline = start + write_timeout_ms_;
    unsigned int accepted = 0;
    unsigned int notified = 0; // how many of them the reader was notified of
    while (accepted < len) {
        const unsigned int piece = peer_.transfer_ring_.append(data + accepted, len - accepted);
        accepted += piece;
        if (piece != 0)
            continue;
        const std::int64_t remaining = deadline - Atime::now();
        if (remaining <= 0)
            break;
        if (notified != accepted) { // a reader that waits for these bytes must not wait for the rest
            peer_.data_ready_.release();
            notified = accepted;
        }
        if (!wait_for(space_ready_, remaining, held))
            return static_cast<int>(accepted);
    }
    peer_.data_ready_.release();
    if (accepted != 0)
        peer_.send_rx_event(peer_.transfer_ring_.full());
    return static_cast<int>(accepted);
}

int Virtual_pair_data_stream_part::get_data(int n) {
    Lock held(pair_lock_);
    const Atime deadline = Atime::now() + read_timeout_ms_;
    while (n > 0) {
        if (!transfer_ring_.empty()) {
            n -= static_cast<int>(fetch_some(static_cast<unsigned int>(n)));
            continue;
        }
        peer_.space_ready_.release();
        const std::int64_t remaining = deadline - Atime::now();
        if (remaining <= 0)
            break;
        if (!wait_for(data_ready_, remaining, held))
            return false;
    }
    peer_.send_tx_event(transfer_ring_.empty());
    return n == 0;
}

/// Moves up to `most` bytes from the transfer ring into the receive ring. Returns how many it consumed from the former.
unsigned int Virtual_pair_data_stream_part::fetch_some(unsigned int most) {
    unsigned char staged[fetch_step];
    const unsigned int count = transfer_ring_.peek(staged, std::min(most, fetch_step), 0);
    peer_.space_ready_.release();
    rx_buffer.append(staged, count); // bytes that do not fit are lost
    transfer_ring_.consume(count);
    return count;
}

/// Waits for a permit without the lock. Acquires the lock again only when it got a permit.
bool Virtual_pair_data_stream_part::wait_for(Capped_semaphore& permit, std::int64_t ms, Lock& held) {
    held.unlock();
    if (!permit.acquire(static_cast<int>(ms - ms % wait_step_ms)))
        return false;
    held.lock();
    return true;
}

Virtual_pair_data_stream::Virtual_pair_data_stream(module_man* modules)
    : a_(modules, b_, pair_lock_), b_(modules, a_, pair_lock_) {}
