#include <platform/Ascii_message.h>

#include <algorithm>

namespace {

constexpr unsigned header_size = 5;

} // namespace

Ascii_message::Ascii_message(const Binary_message& message, bool body_only)
    : text_(reinterpret_cast<char*>(message.get_ptr())), length_(message.get_size()) {
    const unsigned skipped = body_only ? std::min(header_size, length_) : 0;
    text_ += skipped;
    length_ -= skipped;
}
