#include "detail/descriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace glue_detail {

int above_standard(int fd) {
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int copy = fcntl(fd, F_DUPFD, STDERR_FILENO + 1);
    const int error = errno;
    ::close(fd);
    errno = error;
    return copy;
}

int open_above_standard(int folder, const char* name, int flags, int permissions) {
    const int fd = openat(folder, name, flags | O_CLOEXEC, permissions);
    const int moved = above_standard(fd);
    if (moved >= 0 && moved != fd)
        close_on_exec(moved);
    return moved;
}

void close_on_exec(int fd) {
    fcntl(fd, F_SETFD, fcntl(fd, F_GETFD) | FD_CLOEXEC);
}

void make_non_blocking(int fd) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void close_if_open(int fd) {
    if (fd >= 0)
        ::close(fd);
}

} // namespace glue_detail
