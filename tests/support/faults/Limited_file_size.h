#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

/// While it lives, no file that this process writes grows beyond this number of bytes, as on a full disk.
class Limited_file_size {
  public:
    explicit Limited_file_size(rlim_t bytes) : handler_before_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~Limited_file_size() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_before_);
    }
    Limited_file_size(const Limited_file_size&) = delete;
    Limited_file_size& operator=(const Limited_file_size&) = delete;

  private:
    void (*handler_before_)(int);
    rlimit before_{};
};
