#pragma once

/// Counts what the thread that makes it takes from the heap while it lives: every `new`, `malloc`, `calloc`, `realloc`
/// and aligned allocation, of the test program and of every shared library, the C library's own included.
/// Under the thread sanitizer, aligned ones are not seen.
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
