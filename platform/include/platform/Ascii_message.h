#pragma once

#include <platform/Binary_message.h>

#include <string_view>

/// A view of a text that the caller owns. It need not be terminated.
class Ascii_message {
  public:
    Ascii_message(char* text, unsigned length) : text_(text), length_(length) {}
    /// The text of a message: the whole frame, or, with `body_only`, what follows the five bytes of its header.
    Ascii_message(const Binary_message& message, bool body_only);

    char* get_text() const { return text_; }
    /// Characters, bounded by the message's size.
    unsigned get_length() const { return length_; }

    // ---- Fields between commas, counted from 0; a "*" ends the last one ----

    /// A field as a number, with a decimal point whatever the locale; 0 when the field is empty or no number. Words for
    /// numbers ("inf", "nan") are none.
    double get_double(unsigned field) const;
    /// The first character of a field; NUL for an empty one.
    char get_char(unsigned field) const;

  protected:
    char* text_;
    unsigned length_;

  private:
    std::string_view field(unsigned index) const;
};
