#include "TCP_log.h"

#include <platform/Debug.h>
#include <platform/String_builder.h>
#include <platform/snoop_logger.h>
#include <platform/stzncpy.h>

namespace platform_detail {

namespace {

constexpr unsigned port_traffic = 136; // the printer's category

} // namespace

void TCP_log::set(bool on, const char* name) {
    const std::lock_guard guard(mutex_);
    stzncpy(name_, name ? name : "", sizeof name_);
    on_ = on;
}

/// Copies the name, so that no lock is held during the output: the application's logger may write to the port.
void TCP_log::copy_name(char* destination) {
    const std::lock_guard guard(mutex_);
    stzncpy(destination, name_, name_size);
}

void TCP_log::connected(int connection, const std::string& peer) {
    event(connection, ("connected from " + peer).c_str());
}

void TCP_log::disconnected(int connection) {
    event(connection, "disconnected");
}

void TCP_log::event(int connection, const char* text) {
    if (!on_)
        return;
    char name[name_size];
    copy_name(name);
    Debug::Print::print_ts(port_traffic, "%s: client %d %s\n", name, connection, text);
}

void TCP_log::traffic(const char* direction, int connection, const unsigned char* data, unsigned len) {
    const Debug::Enable_token enabled = Debug::Print::enabled(port_traffic);
    if (!on_ || (!enabled && !snoop_logger))
        return;
    char name[name_size];
    copy_name(name);
    String_builder<port_log_piece_size> text;
    text.append_ts();
    text.append_format("%s[%s", name, direction);
    if (connection >= 0)
        text.append_format(" %d", connection);
    text.append_format("](%u): ", len);
    log_in_pieces(text, static_cast<bool>(enabled), data, data + len);
}

} // namespace platform_detail
