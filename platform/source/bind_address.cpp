#include "bind_address.h"

#include "tcp_sockets.h"

#include <platform/Debug.h>

#include <cstdlib>
#include <mutex>

namespace platform_detail {

namespace {

/// The address that the application set. Never destroyed: servers with static storage may open while the process ends.
struct Setting {
    std::mutex mutex;
    std::string address;
};

Setting& setting() {
    static Setting* const instance = new Setting;
    return *instance;
}

std::string bind_address() {
    {
        const std::lock_guard guard(setting().mutex);
        if (!setting().address.empty())
            return setting().address;
    }
    const char* const variable = std::getenv("GLUE_TCP_BIND");
    return variable ? variable : "";
}

} // namespace

void set_bind_address(const std::string& address) {
    const std::lock_guard guard(setting().mutex);
    setting().address = address;
}

int open_bound_listener(int port) {
    const std::string address = bind_address();
    if (address.empty())
        return open_listener_everywhere(port);
    if (!tcp_endpoint(address, 0)) {
        Debug::Print::dprint_ts("TCP server: \"%s\" is not a valid address to listen on\n", address.c_str());
        return -1;
    }
    const auto local = tcp_endpoint(address, port);
    return local ? open_listener(*local) : -1;
}

} // namespace platform_detail
