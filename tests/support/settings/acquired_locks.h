#pragma once

#include <glue/NV_store/NV_root.h>

#include <functional>
#include <gtest/gtest.h>
#include <vector>

/// Expects that each operation acquires the lock of the tree: in a thread that holds the lock it ends the process.
inline void expect_each_acquires_the_lock(NV_store::NV_root& root,
                                          const std::vector<std::function<void()>>& operations) {
    for (const std::function<void()>& operation : operations)
        EXPECT_DEATH(
            {
                root.lock();
                operation();
            },
            "")
            << "operation " << &operation - operations.data();
}
