#pragma once

#include <functional>
#include <vector>

/// Replaces every wait on a semaphore with a time limit while it exists: the limit is recorded, and instead of waiting
/// the thread runs an action of the test. For one thread.
///
///     Replaced_waits waits;
///     waits.meanwhile = [&] { pair.part_a().__write(...); };   // while the reader waits
///     pair.part_b().get_data(1);
///     EXPECT_EQ(waits.limits, std::vector<int>{100000});
class Replaced_waits {
  public:
    Replaced_waits();
    ~Replaced_waits();
    Replaced_waits(const Replaced_waits&) = delete;
    Replaced_waits& operator=(const Replaced_waits&) = delete;

    std::vector<int> limits;         ///< of each wait, in milliseconds
    std::function<void()> meanwhile; ///< the action; a wait that then finds no permit has timed out
};
