#pragma once

#include <functional>
#include <optional>
#include <sys/types.h>

/// Like `Replaced_file_calls`, which has more of them: calls about files that saving settings takes.
class Replaced_save_calls {
  public:
    Replaced_save_calls();
    ~Replaced_save_calls();
    Replaced_save_calls(const Replaced_save_calls&) = delete;
    Replaced_save_calls& operator=(const Replaced_save_calls&) = delete;

    using Answer = std::optional<int>;

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
};
