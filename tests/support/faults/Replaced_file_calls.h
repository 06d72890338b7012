#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

/// While it lives, observes calls of the program to the C library about files, and replaces those for which a test
/// returns a result. Without one, the C library is called. One at a time; set it up before other threads
/// start.
///
///     Replaced_file_calls calls;
///     calls.fsync = [](int) { errno = EIO; return -1; };
class Replaced_file_calls {
  public:
    Replaced_file_calls();
    ~Replaced_file_calls();
    Replaced_file_calls(const Replaced_file_calls&) = delete;
    Replaced_file_calls& operator=(const Replaced_file_calls&) = delete;

    using Answer = std::optional<int>;

    std::function<Answer(const char* name, int flags)> openat;
    std::function<Answer(const char* name)> unlinkat;
    std::function<Answer(int fd)> fsync;
    std::function<Answer(int fd)> fstat;
    std::function<Answer(int fd)> close;
    std::function<Answer(int fd, unsigned long request)> ioctl;
    std::function<Answer(int fd, off_t length)> ftruncate;
    std::function<Answer(int fd)> lseek;
    std::function<Answer(int fd)> flock;
    std::function<Answer(int fd)> fchmod;
    std::function<Answer(int fd)> fchown;
    std::function<Answer(const char* from, const char* to)> renameat;
    std::function<Answer(const char* name)> fstatat;
    std::function<Answer(const char* name)> faccessat;
    std::function<Answer(int whence)> fseek;
    std::function<Answer()> ftell;
    std::function<Answer()> fsetpos;
    /// With the size and the number of the members.
    std::function<Answer(std::size_t size, std::size_t count)> fread;
    std::function<Answer(std::size_t size, std::size_t count)> fwrite;
    std::function<Answer()> ferror;
};

/// The name of the file or folder that a descriptor is open on, without its path.
std::string name_of(int fd);
