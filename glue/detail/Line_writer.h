#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace glue_detail {

/// Writes a text piece by piece into a buffer of `size` bytes; what does not fit, its NUL included, is cut. A `size` of
/// 0 or less leaves no room for anything.
class Line_writer {
  public:
    Line_writer(char* buf, int size) : end_(buf), room_(size > 0 ? static_cast<std::size_t>(size) : 0) {}

    /// Appends a piece. A NUL in it ends it: the next piece takes the place of the NUL.
    /// \return the length of the piece, also when it was cut or there is no room at all
    int append(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int piece = append_list(format, arguments);
        va_end(arguments);
        return piece;
    }

    /// The same for a list of arguments.
    int append_list(const char* format, va_list arguments) __attribute__((format(printf, 2, 0))) {
        if (room_ == 0)
            return std::vsnprintf(nullptr, 0, format, arguments);
        *end_ = '\0';
        const int piece = std::vsnprintf(end_, room_, format, arguments);
        const std::size_t written = std::strlen(end_);
        end_ += written;
        room_ -= written;
        length_ += static_cast<int>(written);
        return piece;
    }

    /// Characters in the buffer.
    int length() const { return length_; }

  private:
    char* end_;
    std::size_t room_;
    int length_ = 0;
};

} // namespace glue_detail
