#include "Pen.h"

#include <cstdarg>
#include <cstdio>

namespace live_view {

std::string formatted(const char* format, ...) {
    char text[160];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

} // namespace live_view
