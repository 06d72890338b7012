#include "Pen.h"

#include <cstdarg>
#include <cstdio>

namespace live_view {

namespace {

constexpr std::size_t shortest_words = 3; // shorter ones occur in too many places

}

std::string formatted(const char* format, ...) {
    char text[160];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

bool Pen::was_on_screen(std::string_view text) const {
    if (before_->text_at(row_, column_, static_cast<int>(text.size())) == text)
        return true;
    return words_.size() >= shortest_words &&
           (before_->row(row_) + ' ').find(words_ + std::string(text) + ' ') != std::string::npos;
}

} // namespace live_view
