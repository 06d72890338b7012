#include "readable.h"

#include <cstdio>
#include <ctime>

namespace platform_detail {

Readable_byte::Readable_byte(unsigned char byte) : text_{}, length_(2) {
    text_[0] = '\\';
    switch (byte) {
    case '\r':
        text_[1] = 'r';
        return;
    case '\n':
        text_[1] = 'n';
        return;
    case '\t':
        text_[1] = 't';
        return;
    case '\\':
        text_[1] = '\\';
        return;
    default:
        break;
    }
    const bool printable = byte >= 0x20 && byte <= 0x7E;
    length_ = static_cast<unsigned>(std::snprintf(text_, sizeof text_, printable ? "%c" : "\\x%02X", byte));
}

Time_stamp::Time_stamp() : text_{} {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    length_ = static_cast<unsigned>(std::snprintf(text_, sizeof text_, "%02d:%02d:%02d.%03ld ", parts.tm_hour,
                                                  parts.tm_min, parts.tm_sec, now.tv_nsec / 1000000));
}

} // namespace platform_detail
