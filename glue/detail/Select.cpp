#include "detail/Select.h"

#include <algorithm>
#include <cstdio>

namespace glue_detail {

Select::Select(const Data_stream& stream, std::atomic<bool>& high_reported)
    : stream_(stream), high_reported_(high_reported) {
    FD_ZERO(&readable_);
    FD_ZERO(&writable_);
}

bool Select::add_reading(int fd) {
    return add(fd, readable_);
}

bool Select::add_writing(int fd) {
    return add(fd, writable_);
}

bool Select::add(int fd, fd_set& set) {
    if (fd < 0)
        return false;
    if (fd >= FD_SETSIZE) {
        report_high(fd);
        return false;
    }
    FD_SET(fd, &set);
    count_in(fd);
    return true;
}

void Select::count_in(int fd) {
    highest_ = std::max(highest_, std::min(fd, FD_SETSIZE - 1));
}

void Select::report_high(int fd) {
    if (!high_reported_.exchange(true))
        std::fprintf(stderr, "%s: cannot wait for descriptor %d: select knows those below %d only\n",
                     stream_.copy_description().data(), fd, FD_SETSIZE);
}

int Select::wait(timeval* limit) {
    return ::select(highest_ + 1, &readable_, &writable_, nullptr, limit);
}

timeval Select::limit_of(std::int64_t ms) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(ms / 1000);
    limit.tv_usec = static_cast<suseconds_t>(ms % 1000 * 1000);
    return limit;
}

} // namespace glue_detail
