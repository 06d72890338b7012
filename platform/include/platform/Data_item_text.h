#pragma once

/// Numbers as text. The locale never matters.
///
/// `T` is bool (0 or 1), char (a number from 0 to 255), an integer, float or double. The text is the shortest one that
/// reads back to the same bits, "inf", "-inf", "nan" and "-0" included; a NaN other than the quiet NaN shows its bits:
/// "nan(0x7fc00001)".
template <typename T>
struct Data_item_stringify {
    /// Writes the whole text and its NUL, or nothing when they need more than `len` bytes: a part of a number would be
    /// another number.
    /// \return characters written, without the NUL
    static int to_string(T value, char* buf, int len);
};

/// Text as numbers: decimal, with a leading minus where the type has a sign, never a plus; with a point or an exponent
/// for a floating-point type only. A bool may also be "true" or "false". Leading spaces and tabs are skipped.
template <typename T>
struct Data_item_destringify {
    /// \return the position after the number; null, with `value` unchanged, when there is none or it does not fit: too
    ///         large for the type, or so small that it would become 0
    static const char* from_string(const char* text, T& value);
};
