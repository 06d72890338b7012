#include <support/fakes/Captured_debug.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace {

constexpr std::string_view time_stamp_form = "00:00:00.000 "; // a zero stands for any digit

bool is_time_stamp(std::string_view text) {
    return std::equal(text.begin(), text.end(), time_stamp_form.begin(), [](char c, char form) {
        return form == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == form;
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
    for (std::size_t i = 0; i + time_stamp_form.size() <= result.size(); ++i)
        if (is_time_stamp(std::string_view(result).substr(i, time_stamp_form.size())))
            result.replace(i, time_stamp_form.size(), "<time> ");
    return result;
}
