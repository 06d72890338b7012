#pragma once

#include <glue/export.h>
#include <glue/vesk/Vesk_message.h>

/// A view of one AIM frame, which carries a piece of a byte stream over a link that knows receiver messages.
///
///     offset 0        2 bytes   ">>"
///            2        3 bytes   length L = N + 3: upper-case hexadecimal digits, read in either case
///            5        1 byte    channel, any value
///            6        N bytes   payload, any bytes
///            6 + N    2 bytes   checksum over all before it: upper-case hexadecimal digits
///
/// It is a receiver message of the text form; where a parser is to find its end, a line terminator follows.
///
///     unsigned char buffer[64];
///     AIM_message message(buffer, sizeof buffer);
///     message.set('1', bytes, 3);                     // >>0061 bytes checksum: 11 bytes in use
///
/// The buffer is the caller's. Not synchronised: one thread at a time, or many that only read.
class GLUE_EXPORT AIM_message : public Vesk_message {
  public:
    /// What `validate` wants to see.
    static constexpr int identifier = msg_id('>', '>');
    /// Bytes of a frame beside its payload.
    static constexpr unsigned overhead = 8;
    /// Channel and checksum, which the length field counts with the payload.
    static constexpr unsigned shortest_body = 3;
    /// The length field is written for values below this, so for payloads of up to 4089 bytes.
    static constexpr unsigned length_limit = 4093;

    /// A frame to be built in the `capacity` bytes at `buf`.
    AIM_message(unsigned char* buf, unsigned capacity);
    /// A view of the bytes of `message`, a frame that came in.
    explicit AIM_message(Vesk_message& message);
    ~AIM_message() override;

    /// Bytes that a frame takes with a payload of `n` bytes.
    static unsigned int calc_buffer_size(unsigned int n) { return n + overhead; }

    // Reading. The frame has been validated and its length field is at least `shortest_body`.

    unsigned char get_chan() const;
    /// The payload's first byte.
    unsigned char* get_data() const;
    /// Bytes of payload, by the length field; 0 when that is below `shortest_body`.
    unsigned int get_len() const;

    // ---- Building ----

    /// Builds the frame of a payload of `n` bytes, after which `n` + 8 bytes are in use. Nothing is written when the
    /// buffer is smaller than that. The payload may lie in the buffer itself, from the seventh byte on.
    ///
    /// On purpose: with a payload above 4089 bytes the three digits of the length stay what they were in the buffer.
    void set(unsigned char chan, const unsigned char* data, unsigned int n);

    // The steps of `set`, in their order; each wants the size in use to cover what it writes.

    void _set_header();
    void _set_len(unsigned int v);
    void _set_chan(unsigned char chan);
    void _set_data(const unsigned char* data, unsigned int n);
    /// Computes the checksum of a frame with `n` bytes of payload and writes it behind them.
    void _set_checksum(unsigned int n);

  private:
    // The channel of the frame that this is a view of, as it was then. No operation asks for it; it keeps its place in
    // the object.
    [[maybe_unused]] unsigned char received_chan_;
};
