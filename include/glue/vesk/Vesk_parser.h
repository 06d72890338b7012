#pragma once

#include <glue/export.h>

#include <cstdint>

class Data_stream;
class Vesk_message;

/// Cuts receiver messages out of a byte stream that mixes frames, text replies, single-byte acknowledgements and noise.
///
/// It peeks at the stream's buffered bytes and consumes them only when a whole packet is there: a partial frame stays
/// in the stream. Call it after each arrival until it returns `nothing`:
///
///     Vesk_parser parser(&stream, false);
///     unsigned char packet[Vesk_parser::largest_packet];
///     int len = 0;
///     while (int kind = parser.get_packet(packet, sizeof packet, len)) {
///         if (kind == Vesk_parser::frame)
///             use(Vesk_message(packet, static_cast<unsigned>(len)));
///     }
///
/// After a garbled header, the bytes up to the next line end are noise. After a length that was garbled to a larger
/// one, the parser waits for that many bytes, 4101 at most; then it searches them again from the second byte on. It
/// does not check the checksum; see `Vesk_message::check_checksum`.
///
/// The parser does not own the stream. One thread at a time; the stream itself may be filled by another.
class GLUE_EXPORT Vesk_parser {
  public:
    /// The result of a call.
    enum Packet_kind {
        nothing = 0,        ///< nothing complete yet
        frame = 1,          ///< a message with its line terminator
        reply = 2,          ///< a text reply, "RE" or "ER"
        noise = 3,          ///< bytes that belong to no message
        acknowledgement = 4 ///< the single byte `accepted_byte` or `refused_byte`
    };

    /// The two acknowledgements.
    static constexpr unsigned char accepted_byte = 0x06;
    static constexpr unsigned char refused_byte = 0x15;

    enum Parse_mode {
        parse_messages = 0,
        parse_echoed_lines = 1 ///< the stream carries echoed text lines that begin with ">"
    };

    /// A packet buffer of this many bytes holds the largest packet.
    static constexpr int largest_packet = 4200;

    /// Decides, from the header alone, whether a frame is wanted on this link.
    class GLUE_EXPORT Checker {
      public:
        // Virtual operations: their order is part of the binary interface.

        /// \param identifier  first character in the low byte
        /// \param length      bytes of the frame without its terminator
        /// \return false to treat the header as a framing error
        virtual bool check(Data_stream& stream, unsigned short identifier, int length) = 0;

        /// An addition, after the operation that all checkers have.
        virtual ~Checker();
    };

    /// Accepts every frame.
    class GLUE_EXPORT Dummy_checker : public Checker {
      public:
        bool check(Data_stream& stream, unsigned short identifier, int length) override;
    };

    /// What each byte was that the parser consumed from the stream. An addition of ours, for programs that must account
    /// for their link: the sum is the number of bytes consumed.
    struct Byte_counts {
        std::uint64_t frames = 0;           ///< frames with their terminators
        std::uint64_t replies = 0;          ///< replies with their line ends
        std::uint64_t acknowledgements = 0; ///< one each
        std::uint64_t noise = 0;            ///< reported as noise, or dropped one by one after a framing error
        std::uint64_t separators = 0;       ///< NULs before a frame; NULs, CRs and LFs after one

        std::uint64_t total() const { return frames + replies + acknowledgements + noise + separators; }
    };

    /// A parser without a stream: returns `nothing` until `init` gives it one.
    Vesk_parser();
    /// \param discard  whether to drop what `stream` has buffered
    Vesk_parser(Data_stream* stream, bool discard);
    Vesk_parser(const Vesk_parser&) = delete;
    Vesk_parser& operator=(const Vesk_parser&) = delete;

    /// Restarts: drops the bytes that the stream has buffered, and expects the start of a frame.
    void init();
    /// The same with another stream.
    void init(Data_stream* stream);

    /// The caller owns the checker, which outlives its use; null restores the one that accepts every frame.
    void set_checker(Checker* checker);
    void set_parse_mode(Parse_mode mode) { parse_mode_ = mode; }
    /// Whether a line terminator follows every frame and belongs to it. The default is true.
    void set_terminated(bool terminated) { terminated_ = terminated; }
    /// Whether the first byte of a bad header becomes part of the reported noise; otherwise it is dropped before. The
    /// default is false.
    void set_keep_on_error(bool keep) { keep_on_error_ = keep; }

    /// Whether the byte at index `i` is CR or LF. Fetches it when it is not buffered; false when it cannot be fetched.
    bool is_newline(int i);

    /// Takes the next packet.
    ///
    /// - `frame`: the frame and its terminator, cut to `size`; the rest of a frame that is cut stays in the stream.
    ///   NULs, CRs and LFs that follow are dropped, also when they arrive later. Without terminators an LF is appended
    ///   if it fits.
    /// - `reply`: the text up to its LF, then up to two NULs if they fit. On purpose `len` counts the NULs.
    /// - `noise`: the bytes up to the next line end and the CRs and LFs that follow it, or 4190 bytes without a
    ///   line end. The parser fetches the byte after a line end to see whether it belongs to it: a stream that waits
    ///   for bytes without limit delays the noise until that byte arrives.
    /// - `acknowledgement`: recognised only when no other byte is buffered; when other bytes follow, the byte begins
    ///   noise.
    ///
    /// With a `size` of 0 a packet is returned with a `len` of 0 and stays in the stream.
    /// \param buf   space for `size` bytes
    /// \param len   set to the number of bytes in `buf`; left unchanged when the result is `nothing`
    /// \return a `Packet_kind`; `nothing` also without a stream
    int get_packet(unsigned char* buf, int size, int& len);

    /// Takes the next packet, for callers that use frames only.
    /// \return the frame's `len`; minus `len` for noise; 0 for everything else. Acknowledgements are reported through
    ///         the debug printer.
    int get_packet(unsigned char* buf, int size);

    /// Takes the next packet into the bytes that `message` has in use; their number is left unchanged.
    int get_packet(Vesk_message& message, int& len);

    /// The counts since construction. `init` keeps them and does not count the bytes that it drops.
    const Byte_counts& get_byte_counts() const { return counts_; }

  private:
    enum class Check { complete, incomplete, restart, bad };
    struct Header;

    bool has(unsigned count);
    bool is_acknowledgement();
    bool lacks_prompt();
    Check check_header(Header& header);
    Check refuse_header();
    bool accepted_by_checker(const Header& header);
    Check find_end(const Header& header, unsigned& whole);
    Check find_end_of_reply(unsigned& whole);
    bool find_end_of_noise(unsigned& index);

    int take_acknowledgement(unsigned char* buf, unsigned size, int& len);
    int take_reply(unsigned whole, unsigned char* buf, unsigned size, int& len);
    int take_frame(unsigned whole, unsigned char* buf, unsigned size, int& len);
    int resynchronise(unsigned char* buf, unsigned size, int& len);
    unsigned take(unsigned count, unsigned char* buf, unsigned size, std::uint64_t& counted_as);
    void drop_one(std::uint64_t& counted_as);
    void drop_line_end();

    Data_stream* stream_;
    int synchronised_;
    Parse_mode parse_mode_;
    bool terminated_;
    [[maybe_unused]] bool second_setting_; // not used; on purpose part of the object
    bool keep_on_error_;
    Dummy_checker default_checker_;
    Checker* checker_;

    bool frame_just_taken_; // the rest of its line end may still arrive
    Byte_counts counts_;
};
