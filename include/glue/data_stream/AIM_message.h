#pragma once

#include <glue/export.h>
#include <glue/vesk/Vesk_message.h>

/// A view of one AIM frame, which carries a piece of a byte stream over a link for receiver messages.
///
///     offset 0        2 bytes   ">>"
///            2        3 bytes   length L = N + 3: upper-case hexadecimal digits, read in either case
///            5        1 byte    channel, any value
///            6        N bytes   payload, any bytes
///            6 + N    2 bytes   checksum over all bytes before it: upper-case hexadecimal digits
///
/// It is a receiver message of the text form. On the wire a line terminator follows.
///
///     unsigned char buffer[64];
///     AIM_message message(buffer, sizeof buffer);
///     message.set('1', bytes, 3);                     // >>0061 bytes checksum: 11 bytes in use
///
/// The caller owns the buffer. Not synchronised: one thread at a time, or many that only read.
class GLUE_EXPORT AIM_message : public Vesk_message {
  public:
    /// The identifier, for `validate`.
    static constexpr int identifier = msg_id('>', '>');
    /// Bytes of a frame without its payload.
    static constexpr unsigned overhead = 8;
    /// Bytes of channel and checksum, which the length field counts with the payload.
    static constexpr unsigned shortest_body = 3;
    /// The length field is written for values below this: for payloads of up to 4089 bytes.
    static constexpr unsigned length_limit = 4093;

    /// A frame to be built in the `capacity` bytes at `buf`.
    AIM_message(unsigned char* buf, unsigned capacity);
    /// A view of the bytes of `message`, a received frame.
    explicit AIM_message(Vesk_message& message);
    ~AIM_message() override;

    /// Bytes of a frame with a payload of `n` bytes.
    static unsigned int calc_buffer_size(unsigned int n) { return n + overhead; }

    // ---- Reading: the frame has been validated and its length field is at least `shortest_body` ----

    unsigned char get_chan() const;
    /// The first byte of the payload.
    unsigned char* get_data() const;
    /// Bytes of payload, by the length field; 0 when that is below `shortest_body`.
    unsigned int get_len() const;

    // ---- Building ----

    /// Builds the frame of a payload of `n` bytes; `n` + 8 bytes are then in use. Nothing is written when the buffer is
    /// smaller. The payload may be in the buffer itself, from the seventh byte on.
    ///
    /// On purpose: with a payload above 4089 bytes the three digits of the length are left unchanged.
    void set(unsigned char chan, const unsigned char* data, unsigned int n);

    // ---- The steps of `set`, in their order: the size in use must include the bytes that a step writes ----

    void _set_header();
    void _set_len(unsigned int v);
    void _set_chan(unsigned char chan);
    void _set_data(const unsigned char* data, unsigned int n);
    /// Computes the checksum of a frame with `n` bytes of payload and writes it after them.
    void _set_checksum(unsigned int n);

  private:
    // The channel of the received frame when this view was made. Not used; on purpose part of the object.
    [[maybe_unused]] unsigned char received_chan_;
};
