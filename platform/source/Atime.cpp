#include <platform/Atime.h>

#include <algorithm>
#include <chrono>
#include <thread>

Atime Atime::now() {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return Atime(std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

void Atime::delay(int units) {
    if (units > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(units));
}

unsigned long Atime::get_elapsed_ms_since(Atime start) {
    return static_cast<unsigned long>(std::max<std::int64_t>(now() - start, 0));
}
