#pragma once

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

/// The descriptors below are the standard ones.
constexpr int first_own_descriptor = 3;

/// The descriptor, or a copy of it out of the standard ones' range: a process that runs without standard streams gets
/// their numbers for what it opens, and streams never close those, nor may messages for standard error end up in them.
/// \param duplicate  how to copy: F_DUPFD or F_DUPFD_CLOEXEC
inline int above_standard(int fd, int duplicate = F_DUPFD) {
    if (fd < 0 || fd >= first_own_descriptor)
        return fd;
    const int copy = fcntl(fd, duplicate, first_own_descriptor);
    const int error = errno;
    ::close(fd);
    errno = error;
    return copy;
}
