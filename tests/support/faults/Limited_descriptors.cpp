#include <support/faults/Limited_descriptors.h>

#include <support/files/descriptors.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

/// \return the limit before
unsigned long limit_descriptors(unsigned long count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto before = limit.rlim_cur;
    limit.rlim_cur = count;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        ADD_FAILURE() << "cannot limit the descriptors to " << count;
    return static_cast<unsigned long>(before);
}

void close_all(const std::vector<int>& descriptors) {
    for (const int fd : descriptors)
        close(fd);
}

int open_something() {
    return open("/dev/null", O_RDONLY);
}

} // namespace

std::set<int> open_descriptor_numbers() {
    std::set<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        numbers.insert(std::stoi(entry.path().filename()));
    for (auto number = numbers.begin(); number != numbers.end();) // that of the directory is closed again
        number = is_open(*number) ? std::next(number) : numbers.erase(number);
    return numbers;
}

int copy_too_high_for_select(int fd) {
    constexpr rlim_t enough = FD_SETSIZE + 100;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < enough)
        limit_descriptors(static_cast<unsigned long>(std::min(limit.rlim_max, enough)));
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, FD_SETSIZE);
    EXPECT_GE(copy, FD_SETSIZE) << "this system allows no descriptor above those that select knows";
    return copy;
}

std::string report_of_high_descriptor(const char* description, int fd) {
    return std::string(description) + ": cannot wait for descriptor " + std::to_string(fd) +
           ": select knows those below 1024 only\n";
}

Limited_descriptors::Limited_descriptors(int more) {
    const int highest = *open_descriptor_numbers().rbegin();
    for (int fd = open_something(); fd >= 0; fd = open_something()) {
        if (fd > highest) {
            close(fd);
            break;
        }
        fillers_.push_back(fd);
    }
    limit_before_ = limit_descriptors(static_cast<unsigned long>(highest + 1 + more));
}

Limited_descriptors::~Limited_descriptors() {
    limit_descriptors(limit_before_);
    close_all(fillers_);
}

Many_descriptors::Many_descriptors(int first_free)
    : limit_before_(limit_descriptors(static_cast<unsigned long>(first_free) + 100)) {
    for (int fd = open_something(); fd >= 0; fd = open_something()) {
        if (fd >= first_free) {
            close(fd);
            break;
        }
        descriptors_.push_back(fd);
    }
}

Many_descriptors::~Many_descriptors() {
    close_all(descriptors_);
    limit_descriptors(limit_before_);
}
