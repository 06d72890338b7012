#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

/// Replaces calls that the program makes to the C library, for as long as it lives: for faults and clocks that a test
/// cannot otherwise have. What is not set goes to the C library. One at a time; set it up before other threads start.
///
///     Replaced_calls calls;
///     calls.select = [](timeval*) { errno = EINTR; return -1; };
class Replaced_calls {
  public:
    Replaced_calls();
    ~Replaced_calls();
    Replaced_calls(const Replaced_calls&) = delete;
    Replaced_calls& operator=(const Replaced_calls&) = delete;

    /// What `select` answers, without looking at the sets, which stay as they are; may change the time left.
    std::function<int(timeval* left)> select;
    /// What `poll` answers, having set what it says of each descriptor.
    std::function<int(pollfd* descriptors, nfds_t count)> poll;
    /// What `gettimeofday` says, in milliseconds.
    std::function<std::int64_t()> wall_clock_ms;
    /// What `read` and `write` answer for a descriptor; nothing: what the C library answers.
    std::function<std::optional<ssize_t>(int fd)> read;
    std::function<std::optional<ssize_t>(int fd)> write;
    /// How many of so many bytes `read` and `recv`, or `write` and `send`, are left to move at most.
    std::function<size_t(size_t size)> size_to_read;
    std::function<size_t(size_t size)> size_to_write;
    /// The same as `read` and `write`, for who has to know how much or what.
    std::function<std::optional<ssize_t>(int fd, void* destination, size_t size)> read_into;
    std::function<std::optional<ssize_t>(int fd, const void* source, size_t size)> write_from;
    /// What `bind` answers to an address.
    std::function<int(const sockaddr* address)> bind;
    /// What happens to a socket before it is connected.
    std::function<void(int fd)> before_connect;
    /// Whether `accept4` fails, with the `errno` that this sets.
    std::function<bool()> accept4_fails;
    /// Whether a descriptor cannot be watched, for the reason that this puts into `errno`.
    std::function<bool(int fd)> epoll_add_fails;
    /// What `tcsendbreak` answers.
    std::function<int(int fd, int duration)> send_break;
};
