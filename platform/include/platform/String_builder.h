#pragma once

#include <string_view>

/// Composes a text in storage of a fixed size; what does not fit is left out. Allocates nothing.
///
///     String_builder<100> text;
///     text.append_ts();
///     text.append_format("%s: ", name);
///     consumed = text.append_ascii_esc(bytes, count);
class String_builder_base {
  public:
    /// \param storage  `capacity` + 1 characters: a NUL always follows the text
    String_builder_base(char* storage, unsigned capacity);
    String_builder_base(const String_builder_base&) = delete;
    String_builder_base& operator=(const String_builder_base&) = delete;

    const char* text() const { return storage_; }
    unsigned length() const { return length_; }
    /// Free space, in characters.
    unsigned free_space() const { return capacity_ - length_; }
    std::string_view view() const { return {storage_, length_}; }

    void clear();
    /// Appends as much of a text as fits. \return whether all of it fitted
    bool append(std::string_view text);
    /// Appends as much of a formatted text as fits. \return whether all of it fitted
    bool append_format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Appends the time of day: UTC, "hh:mm:ss.mmm ". \return whether it fitted
    bool append_ts();
    /// Appends bytes made readable, as `Debug::Print::printascii` prints them, as many as fit whole.
    /// \return how many bytes were appended
    unsigned append_ascii_esc(const unsigned char* data, unsigned count);

  private:
    char* storage_;
    unsigned capacity_;
    unsigned length_;
};

/// The same with its own storage for `capacity` characters.
template <unsigned capacity>
class String_builder : public String_builder_base {
  public:
    String_builder() : String_builder_base(own_storage_, capacity) {}

  private:
    char own_storage_[capacity + 1];
};
