#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

/// While it lives, replaces calls of the program to the C library: for faults and clocks that a test
/// cannot make otherwise. Calls that are not set go to the C library. One at a time; set it up before other threads
/// start.
///
///     Replaced_calls calls;
///     calls.select = [](timeval*) { errno = EINTR; return -1; };
class Replaced_calls {
  public:
    Replaced_calls();
    ~Replaced_calls();
    Replaced_calls(const Replaced_calls&) = delete;
    Replaced_calls& operator=(const Replaced_calls&) = delete;

    /// Replaces `select`: returns its result and may change the time left. The sets are left unchanged.
    std::function<int(timeval* left)> select;
    /// Replaces `poll`: returns its result, and sets the events of each descriptor.
    std::function<int(pollfd* descriptors, nfds_t count)> poll;
    /// The time that `gettimeofday` returns, in milliseconds.
    std::function<std::int64_t()> wall_clock_ms;
    /// The result of `read` and `write` for a descriptor; no value: the C library is called.
    std::function<std::optional<ssize_t>(int fd)> read;
    std::function<std::optional<ssize_t>(int fd)> write;
    /// Limits the bytes that `read` and `recv`, or `write` and `send`, may transfer.
    std::function<size_t(size_t size)> size_to_read;
    std::function<size_t(size_t size)> size_to_write;
    /// The same as `read` and `write`, for tests that need the size or the bytes.
    std::function<std::optional<ssize_t>(int fd, void* destination, size_t size)> read_into;
    std::function<std::optional<ssize_t>(int fd, const void* source, size_t size)> write_from;
    /// The result of `bind` for an address.
    std::function<int(const sockaddr* address)> bind;
    /// Called with a socket before it is connected.
    std::function<void(int fd)> before_connect;
    /// Whether `accept4` fails, with the `errno` that this sets.
    std::function<bool()> accept4_fails;
    /// Whether adding a descriptor to an epoll set fails, with the `errno` that this sets.
    std::function<bool(int fd)> epoll_add_fails;
    /// The result of `tcsendbreak`.
    std::function<int(int fd, int duration)> send_break;
};
