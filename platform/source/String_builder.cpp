#include <platform/String_builder.h>

#include "readable.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using platform_detail::Readable_byte;
using platform_detail::Time_stamp;

String_builder_base::String_builder_base(char* storage, unsigned capacity)
    : storage_(storage), capacity_(capacity), length_(0) {
    storage_[0] = '\0';
}

void String_builder_base::clear() {
    length_ = 0;
    storage_[0] = '\0';
}

bool String_builder_base::append(std::string_view text) {
    const auto fitting = static_cast<unsigned>(std::min<std::size_t>(text.size(), free_space()));
    std::memcpy(storage_ + length_, text.data(), fitting);
    length_ += fitting;
    storage_[length_] = '\0';
    return fitting == text.size();
}

bool String_builder_base::append_format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int needed = std::vsnprintf(storage_ + length_, free_space() + 1, format, arguments);
    va_end(arguments);
    if (needed < 0) {
        storage_[length_] = '\0';
        return false;
    }
    const bool all = static_cast<unsigned>(needed) <= free_space();
    length_ += std::min(static_cast<unsigned>(needed), free_space());
    return all;
}

bool String_builder_base::append_ts() {
    return append(Time_stamp().text());
}

unsigned String_builder_base::append_ascii_esc(const unsigned char* data, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        const Readable_byte readable(data[i]);
        if (readable.text().size() > free_space())
            return i;
        append(readable.text());
    }
    return count;
}
