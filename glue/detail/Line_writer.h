#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace glue_detail {

/// Writes a text piece by piece into a buffer of `size` bytes, its NUL included; the rest is cut off. With a `size` of
/// 0 or less nothing is written.
class Line_writer {
  public:
    Line_writer(char* buf, int size) : end_(buf), free_(size > 0 ? static_cast<std::size_t>(size) : 0) {}

    /// Appends a piece. A NUL in it ends it: the next piece begins there.
    /// \return the length of the whole piece, also when it was cut
    int append(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int piece = append_list(format, arguments);
        va_end(arguments);
        return piece;
    }

    /// The same for a list of arguments.
    int append_list(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
        if (free_ == 0)
            return std::vsnprintf(nullptr, 0, format, arguments);
        *end_ = '\0';
        const int piece = std::vsnprintf(end_, free_, format, arguments);
        const std::size_t written = std::strlen(end_);
        end_ += written;
        free_ -= written;
        length_ += static_cast<int>(written);
        return piece;
    }

    /// Characters in the buffer.
    int length() const { return length_; }

  private:
    char* end_;
    std::size_t free_; ///< bytes, with one for the NUL
    int length_ = 0;
};

} // namespace glue_detail
