#pragma once

/// Answers `ioctl` instead of the C library. \return false to leave a call to others
using Ioctl_answer = bool (*)(int fd, unsigned long request, void* argument, int& result);

/// There is one `ioctl` in a test program, and several who want to answer it: each is asked in turn. Make one of these
/// at the level of a file.
class Replaced_ioctl {
  public:
    explicit Replaced_ioctl(Ioctl_answer how);
    Replaced_ioctl(const Replaced_ioctl&) = delete;
    Replaced_ioctl& operator=(const Replaced_ioctl&) = delete;

    bool answer(int fd, unsigned long request, void* argument, int& result) const {
        return answer_(fd, request, argument, result);
    }
    const Replaced_ioctl* next() const { return next_; }

  private:
    Ioctl_answer answer_;
    const Replaced_ioctl* next_;
};
