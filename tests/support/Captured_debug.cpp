#include <support/Captured_debug.h>

#include <regex>

Captured_debug::Captured_debug() {
    Debug::Print::set_sink([this](std::string_view text) {
        const std::lock_guard<std::mutex> guard(mutex_);
        text_ += text;
    });
}

Captured_debug::~Captured_debug() {
    Debug::Print::set_sink({});
}

std::string Captured_debug::text() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return text_;
}

std::string Captured_debug::text_without_times() const {
    static const std::regex time_stamp("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ");
    return std::regex_replace(text(), time_stamp, "<time> ");
}
