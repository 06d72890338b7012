#include <support/faults/Replaced_calls.h>

#include <support/faults/in_c_library.h>

#include <atomic>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <termios.h>
#include <unistd.h>

namespace {

std::atomic<Replaced_calls*> replaced{nullptr};

size_t size_to_read(size_t size) {
    const Replaced_calls* const instead = replaced;
    return instead && instead->size_to_read ? instead->size_to_read(size) : size;
}

size_t size_to_write(size_t size) {
    const Replaced_calls* const instead = replaced;
    return instead && instead->size_to_write ? instead->size_to_write(size) : size;
}

} // namespace

Replaced_calls::Replaced_calls() {
    EXPECT_EQ(replaced.load(), nullptr);
    replaced = this;
}

Replaced_calls::~Replaced_calls() {
    replaced = nullptr;
}

// The dynamic linker prefers these definitions of the program to those of the shared libraries.

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* left) {
    static const auto original = in_c_library(select);
    const Replaced_calls* const instead = replaced;
    if (instead && instead->select)
        return instead->select(left);
    return original(count, readable, writable, exceptional, left);
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int limit) {
    static const auto original = in_c_library(poll);
    const Replaced_calls* const instead = replaced;
    if (instead && instead->poll)
        return instead->poll(descriptors, count);
    return original(descriptors, count, limit);
}

extern "C" int gettimeofday(timeval* now, void* zone) noexcept {
    static const auto original = in_c_library(gettimeofday);
    const Replaced_calls* const instead = replaced;
    if (!instead || !instead->wall_clock_ms)
        return original(now, zone);
    const std::int64_t ms = instead->wall_clock_ms();
    now->tv_sec = static_cast<time_t>(ms / 1000);
    now->tv_usec = static_cast<suseconds_t>(ms % 1000 * 1000);
    return 0;
}

extern "C" ssize_t read(int fd, void* destination, size_t size) {
    static const auto original = in_c_library(read);
    const Replaced_calls* const instead = replaced;
    auto answer = instead && instead->read ? instead->read(fd) : std::nullopt;
    if (!answer && instead && instead->read_into)
        answer = instead->read_into(fd, destination, size);
    return answer ? *answer : original(fd, destination, size_to_read(size));
}

extern "C" ssize_t recv(int fd, void* destination, size_t size, int flags) {
    static const auto original = in_c_library(recv);
    return original(fd, destination, size_to_read(size), flags);
}

extern "C" ssize_t write(int fd, const void* source, size_t size) {
    static const auto original = in_c_library(write);
    const Replaced_calls* const instead = replaced;
    auto answer = instead && instead->write ? instead->write(fd) : std::nullopt;
    if (!answer && instead && instead->write_from)
        answer = instead->write_from(fd, source, size);
    return answer ? *answer : original(fd, source, size_to_write(size));
}

extern "C" ssize_t send(int fd, const void* source, size_t size, int flags) {
    static const auto original = in_c_library(send);
    return original(fd, source, size_to_write(size), flags);
}

extern "C" int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
    static const auto original = in_c_library(bind);
    const Replaced_calls* const instead = replaced;
    return instead && instead->bind ? instead->bind(address) : original(fd, address, size);
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
    static const auto original = in_c_library(connect);
    const Replaced_calls* const instead = replaced;
    if (instead && instead->before_connect)
        instead->before_connect(fd);
    return original(fd, address, size);
}

extern "C" int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
    static const auto original = in_c_library(accept4);
    const Replaced_calls* const instead = replaced;
    return instead && instead->accept4_fails && instead->accept4_fails() ? -1 : original(fd, address, size, flags);
}

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    static const auto original = in_c_library(epoll_ctl);
    const Replaced_calls* const instead = replaced;
    if (operation == EPOLL_CTL_ADD && instead && instead->epoll_add_fails && instead->epoll_add_fails(fd))
        return -1;
    return original(epoll, operation, fd, event);
}

extern "C" int tcsendbreak(int fd, int duration) noexcept {
    static const auto original = in_c_library(tcsendbreak);
    const Replaced_calls* const instead = replaced;
    return instead && instead->send_break ? instead->send_break(fd, duration) : original(fd, duration);
}
