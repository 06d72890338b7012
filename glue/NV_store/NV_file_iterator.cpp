#include <glue/NV_store/NV_file_iterator.h>

#include "NV_store/modes.h"
#include "detail/descriptors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace NV_store {

namespace {

// Requests of F2FS; the headers of some systems lack them.
constexpr unsigned long start_atomic_write = 0xF501;
constexpr unsigned long commit_atomic_write = 0xF502;

constexpr int asks_for_writing = O_WRONLY | O_RDWR | O_APPEND;
constexpr int new_file_permissions = 0777;

bool is_temporary_error() {
    return errno == EAGAIN || errno == EINTR;
}

void report_error() {
    std::printf("Error in NV_file_iterator: %s\n", std::strerror(errno));
}

/// Moves bytes with `transfer` until all are moved, a call moves none, or an error occurs.
template <typename Byte, typename Transfer>
int move_all(Byte* bytes, int count, Transfer transfer) {
    if (!bytes || count < 0)
        return -1;
    int done = 0;
    while (done < count) {
        const ssize_t moved = transfer(bytes + done, static_cast<std::size_t>(count - done));
        if (moved == 0)
            break;
        if (moved > 0) {
            done += static_cast<int>(moved);
        } else if (!is_temporary_error()) {
            report_error();
            return -1;
        }
    }
    return done;
}

} // namespace

NV_file_iterator::NV_file_iterator(const char* path) : path_(path) {}

NV_file_iterator::~NV_file_iterator() {
    if (file_.first > STDERR_FILENO && fcntl(file_.first, F_GETFD) != -1)
        close_atomic(file_);
}

// ---- Opening and closing ----

std::pair<int, bool> NV_file_iterator::open_atomic_fallback(const char* path, int flags, int fallback_flags,
                                                            int permissions) {
    if (flags & asks_for_writing) {
        // Truncated only after atomic writing has begun, so that the old content stays until the commit.
        const int fd = glue_detail::open_above_standard(AT_FDCWD, path, flags & ~O_TRUNC, permissions);
        if (fd >= 0) {
            const bool atomic = ::ioctl(fd, start_atomic_write) == 0;
            if (atomic && (!(flags & O_TRUNC) || ::ftruncate(fd, 0) == 0))
                return {fd, true};
            ::close(fd);
        }
    }
    return {glue_detail::open_above_standard(AT_FDCWD, path, fallback_flags, permissions), false};
}

int NV_file_iterator::close_atomic(std::pair<int, bool> file) {
    const auto [fd, atomic] = file;
    if (fd < 0)
        return -1;
    if (atomic)
        ::ioctl(fd, commit_atomic_write); // on purpose a failure is not reported
    return ::close(fd);
}

std::pair<int, bool> NV_file_iterator::open_for(modes_t mode) const {
    if (mode == reading)
        return {glue_detail::open_above_standard(AT_FDCWD, path_.c_str(), O_RDONLY, 0), false};
    const int flags = O_WRONLY | O_CREAT | (is_for_appending(mode) ? O_APPEND : O_TRUNC);
    return open_atomic_fallback(path_.c_str(), flags, flags, new_file_permissions);
}

void NV_file_iterator::set_mode(modes_t mode) {
    if (mode_ == reading || is_for_writing(mode_)) {
        const int result = close_atomic(file_);
        file_ = no_file;
        mode_ = closed;
        if (result != 0)
            return;
    }
    if (mode == reading || is_for_writing(mode)) {
        file_ = open_for(mode);
        if (file_.first < 0) {
            mode_ = closed;
            return;
        }
        if (is_for_writing(mode) && !is_for_appending(mode))
            byte_count_ = 0;
    }
    mode_ = mode;
}

bool NV_file_iterator::is_readable() {
    return file_.first >= 0;
}

// ---- Bytes ----

int NV_file_iterator::blocking_write(int fd, const unsigned char* bytes, int count) {
    return move_all(bytes, count,
                    [fd](const unsigned char* from, std::size_t size) { return ::write(fd, from, size); });
}

int NV_file_iterator::blocking_read(int fd, unsigned char* bytes, int count) {
    return move_all(bytes, count, [fd](unsigned char* to, std::size_t size) { return ::read(fd, to, size); });
}

bool NV_file_iterator::push_bytes(unsigned char* bytes, int count) {
    if (!is_for_writing(mode_) || count < 0)
        return false;
    byte_count_ += static_cast<unsigned int>(count);
    return blocking_write(file_.first, bytes, count) == count;
}

bool NV_file_iterator::pop_bytes(unsigned char* bytes, int count) {
    return mode_ == reading && count >= 0 && blocking_read(file_.first, bytes, count) == count;
}

bool NV_file_iterator::peek_bytes(unsigned char* bytes, int count) {
    if (mode_ != reading || count < 0)
        return false;
    const off_t position = ::lseek(file_.first, 0, SEEK_CUR);
    if (position < 0)
        return false;
    const bool whole = blocking_read(file_.first, bytes, count) == count;
    return ::lseek(file_.first, position, SEEK_SET) == position && whole;
}

void NV_file_iterator::get_free_space(unsigned int& used, unsigned int& total) const {
    used = byte_count_;
    total = nominal_size;
}

} // namespace NV_store
