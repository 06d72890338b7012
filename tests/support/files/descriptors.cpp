#include <support/files/descriptors.h>

#include <support/checks/waiting.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

int entries_of(const char* folder) {
    const std::filesystem::directory_iterator all(folder);
    return static_cast<int>(std::distance(begin(all), end(all)));
}

/// Starts a thread and waits until the system no longer lists it: it may be listed a little longer than it runs.
bool start_and_end_a_thread() {
    pid_t thread = 0;
    std::thread([&] { thread = gettid(); }).join();
    const std::string listed = "/proc/self/task/" + std::to_string(thread);
    return eventually([&] { return access(listed.c_str(), F_OK) != 0; });
}

} // namespace

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

int open_descriptors() {
    return entries_of("/proc/self/fd") - 1; // without the one that reads this folder
}

int next_descriptor() {
    const int fd = dup(STDERR_FILENO);
    close(fd);
    return fd;
}

/// With the first thread of a program a sanitizer may start one of its own, which stays: it is started before any
/// count.
int threads() {
    static const bool all_are_started = start_and_end_a_thread();
    static_cast<void>(all_are_started);
    return entries_of("/proc/self/task");
}

int bytes_ready(int fd) {
    int count = -1;
    ioctl(fd, FIONREAD, &count);
    return count;
}

void make_non_blocking(int fd) {
    if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) != 0)
        ADD_FAILURE() << "cannot make descriptor " << fd << " non-blocking";
}

void write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written <= 0) {
            ADD_FAILURE() << bytes.size() << " bytes could not be written to descriptor " << fd;
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string read_exactly(int fd, std::size_t count) {
    constexpr int limit_ms = 10000;
    std::string result;
    while (result.size() < count) {
        pollfd waiting{fd, POLLIN, 0};
        char piece[4096];
        ssize_t received = 0;
        if (poll(&waiting, 1, limit_ms) == 1)
            received = read(fd, piece, std::min(sizeof piece, count - result.size()));
        if (received <= 0) {
            ADD_FAILURE() << "only " << result.size() << " of " << count << " bytes were received";
            return result;
        }
        result.append(piece, static_cast<std::size_t>(received));
    }
    return result;
}

Pipe::Pipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0)
        ADD_FAILURE() << "cannot create a pipe";
}

Pipe::~Pipe() {
    close_reading();
    close_writing();
}

int Pipe::take_reading() {
    return std::exchange(ends_[0], -1);
}

int Pipe::take_writing() {
    return std::exchange(ends_[1], -1);
}

void Pipe::close_reading() {
    if (ends_[0] >= 0)
        close(take_reading());
}

void Pipe::close_writing() {
    if (ends_[1] >= 0)
        close(take_writing());
}

int Pipe::shrink() const {
    const int size = fcntl(ends_[1] >= 0 ? ends_[1] : ends_[0], F_SETPIPE_SZ, 1);
    if (size <= 0)
        ADD_FAILURE() << "cannot shrink a pipe";
    return size;
}

std::string Pipe::drain() const {
    std::string result;
    for (int ready = 0; (ready = bytes_ready(ends_[0])) > 0;)
        result += read_exactly(ends_[0], static_cast<std::size_t>(ready));
    return result;
}

Socket_pair::Socket_pair() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0)
        ADD_FAILURE() << "cannot create a pair of sockets";
}

Socket_pair::~Socket_pair() {
    if (ends_[0] >= 0)
        close(ends_[0]);
    close_far();
}

int Socket_pair::take_near() {
    return std::exchange(ends_[0], -1);
}

void Socket_pair::close_far() {
    if (ends_[1] >= 0)
        close(std::exchange(ends_[1], -1));
}
