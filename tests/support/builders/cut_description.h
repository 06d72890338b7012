#pragma once

#include <glue/data_stream/Data_stream.h>

#include <cstdarg>
#include <cstdio>
#include <string>

/// A formatted text, cut to the size of a stream's description.
__attribute__((format(printf, 1, 2))) inline std::string cut_description(const char* format, ...) {
    char text[Data_stream::description_size];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}
