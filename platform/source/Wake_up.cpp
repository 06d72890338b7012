#include "Wake_up.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace platform_detail {

namespace {

int make_event() {
    const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return fd;
}

} // namespace

Wake_up::Wake_up(asio::io_context& io, std::function<void()> handler)
    : event_(io, make_event()), handler_(std::move(handler)) {
    wait();
}

void Wake_up::notify() {
    static constexpr std::uint64_t one = 1;
    // Fails only when about 2^64 notifications wait already.
    [[maybe_unused]] const ssize_t written = ::write(event_.native_handle(), &one, sizeof one);
}

void Wake_up::wait() {
    event_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const std::error_code& error) {
        if (error)
            return;
        std::uint64_t notifications = 0;
        [[maybe_unused]] const ssize_t result = ::read(event_.native_handle(), &notifications, sizeof notifications);
        handler_();
        wait();
    });
}

} // namespace platform_detail
