#pragma once

#include <glue/export.h>

#include <platform/Binary_message.h>

/// A view of one framed receiver message in a buffer that the caller owns.
///
///     offset 0      2 bytes   identifier: two printable characters, read as a number with the first in the low byte
///            2      3 bytes   body length L, 0 to 4095: hexadecimal digits, written upper-case, read in either case
///            5      L bytes   body
///            5 + L            line terminator, CR or LF, on every frame that `Vesk_parser` delivers
///
/// The body ends with the checksum. In the binary form it is one byte at offset L + 4, over the L + 4 bytes before it.
/// In the text form it is two upper-case hexadecimal digits, at offsets L + 3 and L + 4, over the bytes before them.
///
///     unsigned char frame[64];
///     Vesk_message message(frame, sizeof frame, 14);      // a body of 9 bytes
///     message.setup(identifier, 14);                      // two bytes, "GS"
///     message.set_float(9, curvature);
///     message.set_checksum(true);
///
/// A message adds no data to its base class: any class derived from it can be a view of the same frame. Not
/// synchronised: one thread at a time, or many that only read.
class GLUE_EXPORT Vesk_message : public Binary_message {
  public:
    /// Bytes before the body.
    static constexpr unsigned header_size = 5;
    /// Body lengths are below this.
    static constexpr unsigned body_limit = 4096;

    /// Uses all of the `size` bytes at `buf`.
    Vesk_message(unsigned char* buf, unsigned size) : Binary_message(buf, size) {}
    /// Uses the first `n` of the `size` bytes at `buf`.
    Vesk_message(unsigned char* buf, unsigned size, unsigned n) : Binary_message(buf, size, n) {}

    // Virtual operations: their order is part of the binary interface.

    virtual ~Vesk_message();

    /// Writes the two identifier bytes of `src`, then the length field of a frame of `size` bytes (L = `size` - 5). The
    /// size in use is left unchanged.
    /// \return false when the length is not valid, with the identifier written, or the message is shorter than its
    ///         header
    virtual bool setup(const unsigned char* src, int size);

    // ---- Length ----

    /// \return the body length L; 0 when the message is shorter than its header or a length character is not a
    ///         hexadecimal digit
    unsigned get_msg_len() const;

    /// Writes the length field; the size in use is left unchanged.
    /// \return false, with nothing written, when `L` is 4096 or more or the message is shorter than its header
    bool set_msg_len(unsigned L);

    /// Shortens the message to a body of `L` bytes: size in use and length field.
    /// \return false, with nothing changed, when the message is shorter than that or `L` is 4096 or more
    bool reduce_size_to(unsigned L);

    // ---- Checksum ----

    /// The 8-bit checksum over the first `n` bytes: for each byte the value, 0 at first, is rotated left by two bits
    /// and the byte is XORed into it; at the end it is rotated once more. Only bytes in use are included.
    /// \return 0 to 255; 0 for an `n` of 0
    unsigned compute_8bit_checksum(int n) const;

    /// Whether the message is a whole frame, its last byte in use is the terminator, and its binary or text checksum is
    /// right. The text form is tried when the frame begins with ">>" or has "@" before its last three bytes.
    ///
    /// On purpose: the digits are expected just before the last byte, so the check fails for a text frame that ends
    /// with CR LF.
    [[nodiscard]] bool check_checksum() const;

    /// Whether the message has this identifier (16 bits, first character in the low byte) and its checksum is right.
    [[nodiscard]] bool validate(int identifier) const;

    /// Writes the checksum of a binary or a text frame at the end of its body. The length field gives that end.
    ///
    /// On purpose: the digits of a text frame with L below 2 overwrite the length field.
    /// \return false, with nothing written, when the frame exceeds the size in use
    bool set_checksum(bool binary);

    // ---- Identifier: additions, for callers that distinguish messages ----

    /// The identifier as a number.
    int get_msg_id() const { return get_uint16_le(0); }
    /// The identifier of two characters as a number.
    static constexpr int msg_id(char first, char second) {
        return static_cast<unsigned char>(first) | static_cast<unsigned char>(second) << 8;
    }
};

/// A view of a text reply of the receiver: "RE" to a command that it accepted, "ER" to one that it refused.
class GLUE_EXPORT Vesk_response : public Vesk_message {
  public:
    Vesk_response(unsigned char* buf, unsigned size) : Vesk_message(buf, size) {}
    ~Vesk_response() override;

    /// Whether the receiver accepted the command.
    bool get_response_status() const;

    /// The text after the header, with its line end; "" when the length field is 0 or bad. The text is valid as long as
    /// the buffer. If no NUL ends it, it is valid until the calling thread reads a text from any message.
    const char* get_response_string() const;

    /// Whether the text begins with `s`.
    bool check_response_string(const char* s) const;

    /// Finds the request identifier, which a reply may have between two "%".
    /// \param begin  set to the first "%" when there is one
    /// \param end    set to just past the second "%" when there is one
    /// \return whether the reply has both
    bool get_identifier(const char*& begin, const char*& end) const;

    /// Makes the message begin at the text that follows the request identifier and the white space after it.
    /// \param len  set to the length of that text without white space and control characters at its end
    /// \return the text's first character; null, with nothing changed, when there is no identifier or no text after it
    const char* strip_identifier(unsigned& len);
};
