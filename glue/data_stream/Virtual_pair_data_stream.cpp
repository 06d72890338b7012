#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <platform/Atime.h>

#include <algorithm>

namespace {

/// Bytes that one step of a fetch moves at most.
constexpr unsigned int fetch_step = 256;
/// Waits last a multiple of this many milliseconds.
constexpr int wait_step_ms = 10;

} // namespace

Virtual_pair_data_stream_part::Virtual_pair_data_stream_part(module_man* modules,
                                                             Virtual_pair_data_stream_part& other_end,
                                                             Mutex& lock_of_both)
    : Event_sender_data_stream(modules),
      read_timeout_ms(default_timeout_ms),
      write_timeout_ms(default_timeout_ms),
      transfer_ring(transfer_storage, transfer_capacity),
      peer(other_end),
      pair_lock(lock_of_both) {}

Virtual_pair_data_stream_part::~Virtual_pair_data_stream_part() = default;

void Virtual_pair_data_stream_part::lock() {
    pair_lock.lock();
}

void Virtual_pair_data_stream_part::unlock() {
    pair_lock.unlock();
}

void Virtual_pair_data_stream_part::flush() {
    const Lock held(pair_lock);
    transfer_ring.clear();
}

int Virtual_pair_data_stream_part::set_read_timeout(int ms) {
    return store(read_timeout_ms, ms);
}

int Virtual_pair_data_stream_part::set_default_read_timeout() {
    return store(read_timeout_ms, default_timeout_ms);
}

int Virtual_pair_data_stream_part::set_write_timeout(int ms) {
    return store(write_timeout_ms, ms);
}

int Virtual_pair_data_stream_part::set_default_write_timeout() {
    return store(write_timeout_ms, default_timeout_ms);
}

int Virtual_pair_data_stream_part::store(std::int32_t& timeout, int ms) {
    const Lock held(pair_lock);
    timeout = ms;
    return true;
}

int Virtual_pair_data_stream_part::_write(const unsigned char* data, unsigned int len) {
    const Atime start = Atime::now();
    Lock held(pair_lock);
    const Atime deadline = start + write_timeout_ms;
    unsigned int taken = 0;
    unsigned int released = 0; // how many of them a reader may go on with
    while (taken < len) {
        const unsigned int piece = peer.transfer_ring.append(data + taken, len - taken);
        taken += piece;
        if (piece != 0)
            continue;
        const std::int64_t remaining = deadline - Atime::now();
        if (remaining <= 0)
            break;
        if (released != taken) { // a reader that waits for these bytes must not wait for the rest
            peer.data_ready.release();
            released = taken;
        }
        if (!wait_for(space_ready, remaining, held))
            return static_cast<int>(taken);
    }
    peer.data_ready.release();
    if (taken != 0)
        peer.send_rx_event(peer.transfer_ring.full());
    return static_cast<int>(taken);
}

int Virtual_pair_data_stream_part::get_data(int n) {
    Lock held(pair_lock);
    const Atime deadline = Atime::now() + read_timeout_ms;
    while (n > 0) {
        if (!transfer_ring.empty()) {
            n -= static_cast<int>(fetch_some(static_cast<unsigned int>(n)));
            continue;
        }
        peer.space_ready.release();
        const std::int64_t remaining = deadline - Atime::now();
        if (remaining <= 0)
            break;
        if (!wait_for(data_ready, remaining, held))
            return false;
    }
    peer.send_tx_event(transfer_ring.empty());
    return n == 0;
}

/// Moves up to `most` bytes from the transfer ring into the receive ring. Returns how many left the transfer ring.
unsigned int Virtual_pair_data_stream_part::fetch_some(unsigned int most) {
    unsigned char staged[fetch_step];
    const unsigned int count = transfer_ring.peek(staged, std::min(most, fetch_step), 0);
    peer.space_ready.release();
    rx_buffer.append(staged, count); // what does not fit is lost
    transfer_ring.consume(count);
    return count;
}

/// Waits for a permit without the lock, which is held again only when one came.
bool Virtual_pair_data_stream_part::wait_for(Capped_semaphore& permit, std::int64_t ms, Lock& held) {
    held.unlock();
    if (!permit.acquire(static_cast<int>(ms - ms % wait_step_ms)))
        return false;
    held.lock();
    return true;
}

Virtual_pair_data_stream::Virtual_pair_data_stream(module_man* modules)
    : a(modules, b, pair_lock), b(modules, a, pair_lock) {}
