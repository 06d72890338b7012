#pragma once

/// Replaces `ioctl`. \return false to pass the call on
using Ioctl_answer = bool (*)(int fd, unsigned long request, void* argument, int& result);

/// Registers a replacement. A test program has one `ioctl`, which calls the registered replacements in turn. Make these
/// at namespace scope.
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
