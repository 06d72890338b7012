#pragma once

#include <functional>
#include <vector>

/// Stands in for every wait on a semaphore with a time limit while it lives: what the library would wait for is
/// recorded, and what happens meanwhile is up to the test, in the very thread that would wait. For one thread.
///
///     Replaced_waits waits;
///     waits.meanwhile = [&] { pair.part_a().__write(...); };   // comes while the reader waits
///     pair.part_b().get_data(1);
///     EXPECT_EQ(waits.limits, std::vector<int>{100000});
class Replaced_waits {
  public:
    Replaced_waits();
    ~Replaced_waits();
    Replaced_waits(const Replaced_waits&) = delete;
    Replaced_waits& operator=(const Replaced_waits&) = delete;

    std::vector<int> limits;         ///< of each wait, in milliseconds
    std::function<void()> meanwhile; ///< a wait that finds no permit after it has timed out
};
