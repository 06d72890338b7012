#include <platform/module_man.h>

#include <limits>

int module_man::init_module(std::int16_t* id, [[maybe_unused]] bool permanent) {
    constexpr std::uint32_t count = std::numeric_limits<std::int16_t>::max();
    *id = static_cast<std::int16_t>(next_.fetch_add(1, std::memory_order_relaxed) % count + 1);
    return 0;
}
