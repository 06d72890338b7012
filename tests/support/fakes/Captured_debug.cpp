#include <support/fakes/Captured_debug.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace {

constexpr std::string_view time_stamp_pattern = "00:00:00.000 "; // a zero means any digit

bool is_time_stamp(std::string_view text) {
    return std::equal(text.begin(), text.end(), time_stamp_pattern.begin(), [](char c, char expected) {
        return expected == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == expected;
    });
}

} // namespace

Captured_debug::Captured_debug() {
    Debug::Print::set_sink([this](std::string_view text) {
        const std::lock_guard guard(mutex_);
        text_ += text;
    });
}

Captured_debug::~Captured_debug() {
    Debug::Print::set_sink({});
}

std::string Captured_debug::text() const {
    const std::lock_guard guard(mutex_);
    return text_;
}

std::string Captured_debug::text_without_times() const {
    std::string result = text();
    for (std::size_t i = 0; i + time_stamp_pattern.size() <= result.size(); ++i)
        if (is_time_stamp(std::string_view(result).substr(i, time_stamp_pattern.size())))
            result.replace(i, time_stamp_pattern.size(), "<time> ");
    return result;
}
