#pragma once

#include <platform/Atime.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

/// The time until a deadline, as an argument for `poll`; without a deadline, no limit.
inline int milliseconds_until(std::optional<Atime> deadline) {
    if (!deadline)
        return -1;
    const std::int64_t rest = *deadline - Atime::now();
    return static_cast<int>(std::clamp<std::int64_t>(rest, 0, std::numeric_limits<int>::max()));
}
