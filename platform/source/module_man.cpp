#include <platform/module_man.h>

#include <limits>

namespace {

constexpr std::uint32_t id_count = std::numeric_limits<std::int16_t>::max();

} // namespace

/// \return the first of `count` consecutive ids
std::uint32_t module_man::reserve(std::uint32_t count) {
    std::uint32_t first = next_.load(std::memory_order_relaxed);
    std::uint32_t begin = 0;
    do {
        begin = first + count <= id_count ? first : 0;
    } while (!next_.compare_exchange_weak(first, begin + count, std::memory_order_relaxed));
    return begin + 1;
}

int module_man::init_module(std::int16_t* id, [[maybe_unused]] bool permanent) {
    *id = static_cast<std::int16_t>(reserve(1));
    return 0;
}

int module_man::init_module_array(std::uint16_t* ids, int count, [[maybe_unused]] bool permanent) {
    if (count < 1 || static_cast<std::uint32_t>(count) > id_count)
        return -1;
    const std::uint32_t first = reserve(static_cast<std::uint32_t>(count));
    for (int i = 0; i < count; ++i)
        ids[i] = static_cast<std::uint16_t>(first + static_cast<std::uint32_t>(i));
    return 0;
}
