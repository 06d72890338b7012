#include <support/streams/Stream_end.h>

#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <platform/Atime.h>

#include <algorithm>
#include <poll.h>
#include <utility>

namespace {

constexpr int longest_wait_ms = 20;

void wait_for(int fd, short events) {
    pollfd watched{fd, events, 0};
    poll(&watched, 1, longest_wait_ms);
}

} // namespace

Stream_end::Stream_end(std::shared_ptr<Data_stream> stream, Manners manners)
    : manners_(manners), stream_(std::move(stream)), sender_(dynamic_cast<Event_sender_data_stream*>(stream_.get())) {
    if (sender_)
        sender_->reg_rx_waiter(&waiter_, false);
}

Stream_end::~Stream_end() {
    if (sender_)
        sender_->dereg_rx_waiter();
}

Event_sender_data_stream* Stream_end::receiving_stream() const {
    return dynamic_cast<Virtual_pair_data_stream_part*>(stream_.get()) ? nullptr : sender_;
}

std::unique_lock<std::mutex> Stream_end::exclusive_use() {
    return manners_.one_thread ? std::unique_lock<std::mutex>(exclusive_use_) : std::unique_lock<std::mutex>();
}

std::size_t Stream_end::write(const unsigned char* bytes, std::size_t count) {
    const auto held = exclusive_use();
    const int written = stream_->__write(bytes, static_cast<unsigned>(count));
    if (manners_.queues)
        return count;
    return static_cast<std::size_t>(std::max(written, 0));
}

std::size_t Stream_end::read(unsigned char* destination, std::size_t size) {
    const auto held = exclusive_use();
    if (stream_->bytes_avail() == 0)
        stream_->bytes_avail(Data_stream::rx_capacity); // fetches the available bytes, if this kind fetches
    const auto count = std::min<unsigned>(stream_->bytes_avail(), static_cast<unsigned>(size));
    if (count == 0 || !stream_->get_data(destination, count, 0))
        return 0;
    stream_->drop(count);
    return count;
}

void Stream_end::wait_for_bytes() {
    if (sender_) {
        waiter_event event;
        if (waiter_.get_event(event, Atime::now() + longest_wait_ms) == 0)
            release_payload(event);
    } else if (const auto* const posix = dynamic_cast<Posix_data_stream*>(stream_.get())) {
        wait_for(posix->get_read_fd(), POLLIN);
    }
}

void Stream_end::wait_for_free_space() {
    if (const auto* const posix = dynamic_cast<Posix_data_stream*>(stream_.get()))
        wait_for(posix->get_write_fd(), POLLOUT);
    else
        Atime::delay(1);
}
