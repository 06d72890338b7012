#pragma once

/// Counts the allocations of the thread that made it while it lives: every `new`, `malloc`, `calloc`, `realloc`
/// and aligned allocation, in the test program and in every shared library, the C library included.
/// Under the thread sanitizer, aligned ones are not counted.
///
///     const Allocation_counter allocations;
///     stream.drop(1);
///     EXPECT_EQ(allocations.count(), 0U);
///
/// One at a time in each thread.
class Allocation_counter {
  public:
    Allocation_counter();
    ~Allocation_counter();
    Allocation_counter(const Allocation_counter&) = delete;
    Allocation_counter& operator=(const Allocation_counter&) = delete;

    unsigned count() const;
};
