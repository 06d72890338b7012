#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <pthread.h>

/// While it lives, no thread can be started: each would need a stack that does not fit the address space.
class No_new_threads {
  public:
    No_new_threads() {
        constexpr std::size_t nearly_all_addresses = SIZE_MAX - 0xFFFFFFF;
        pthread_attr_t immense;
        pthread_getattr_default_np(&before_);
        pthread_getattr_default_np(&immense);
        pthread_attr_setstacksize(&immense, nearly_all_addresses);
        EXPECT_EQ(pthread_setattr_default_np(&immense), 0);
        pthread_attr_destroy(&immense);
    }
    ~No_new_threads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }
    No_new_threads(const No_new_threads&) = delete;
    No_new_threads& operator=(const No_new_threads&) = delete;

  private:
    pthread_attr_t before_;
};
