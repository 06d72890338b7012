#pragma once

#include <glue/export.h>

#include <cstdint>

class Data_stream;
class Vesk_message;

/// Cuts receiver messages out of a byte stream that mixes frames, text replies, single-byte acknowledgements and noise.
///
/// It looks at the stream's buffered bytes and takes them only when it has a whole packet, so a frame of which only a
/// part has arrived waits in the stream. Call it after each arrival until it says `nothing`:
///
///     Vesk_parser parser(&stream, false);
///     unsigned char packet[Vesk_parser::largest_packet];
///     int len = 0;
///     while (int kind = parser.get_packet(packet, sizeof packet, len)) {
///         if (kind == Vesk_parser::frame)
///             use(Vesk_message(packet, static_cast<unsigned>(len)));
///     }
///
/// A byte that garbles a header costs the bytes up to the next line end. A length that is garbled upwards costs as many
/// bytes as it claims, 4101 at most: they are waited for, then looked through again from the second byte on.
/// The checksum is not looked at here; see `Vesk_message::check_checksum`.
///
/// The parser does not own the stream. One thread at a time; the stream itself may be filled by another.
class GLUE_EXPORT Vesk_parser {
  public:
    /// What a call found.
    enum Packet_kind {
        nothing = 0,        ///< nothing complete yet
        frame = 1,          ///< a message with its line terminator
        reply = 2,          ///< a text reply, "RE" or "ER"
        noise = 3,          ///< bytes that belong to no message
        acknowledgement = 4 ///< the single byte 0x06 (accepted) or 0x15 (refused)
    };

    enum Parse_mode {
        parse_messages = 0,
        parse_echoed_lines = 1 ///< what comes are echoed text lines that begin with ">"
    };

    /// A packet buffer of this many bytes holds everything that can come in one packet.
    static constexpr int largest_packet = 4200;

    /// Decides, from the header alone, whether a frame is wanted on this link.
    class GLUE_EXPORT Checker {
      public:
        // Virtual operations: their order is part of the binary interface.

        /// \param identifier  first character in the low byte
        /// \param length      bytes of the frame without its terminator
        /// \return false to treat the header as a framing error
        virtual bool check(Data_stream& stream, unsigned short identifier, int length) = 0;

        /// An addition, behind the operation that all checkers have.
        virtual ~Checker();
    };

    /// Takes every frame.
    class GLUE_EXPORT Dummy_checker : public Checker {
      public:
        bool check(Data_stream& stream, unsigned short identifier, int length) override;
    };

    /// Where every byte went that the parser took from the stream. An addition of ours, for programs that must account
    /// for their link: the sum is the number of bytes taken.
    struct Byte_counts {
        std::uint64_t frames = 0;           ///< frames with their terminators
        std::uint64_t replies = 0;          ///< replies with their line ends
        std::uint64_t acknowledgements = 0; ///< one each
        std::uint64_t noise = 0;            ///< reported as noise, or dropped one by one after a framing error
        std::uint64_t separators = 0;       ///< NULs before a frame; NULs, CRs and LFs after one

        std::uint64_t total() const { return frames + replies + acknowledgements + noise + separators; }
    };

    /// A parser without a stream: finds nothing until `init` names one.
    Vesk_parser();
    /// \param discard  whether to drop what `stream` has buffered
    Vesk_parser(Data_stream* stream, bool discard);
    Vesk_parser(const Vesk_parser&) = delete;
    Vesk_parser& operator=(const Vesk_parser&) = delete;

    /// Starts anew: believes to be at a frame start and drops what the stream has buffered.
    void init();
    /// The same on another stream.
    void init(Data_stream* stream);

    /// The checker is the caller's and outlives its use; null brings back the one that takes every frame.
    void set_checker(Checker* checker);
    void set_parse_mode(Parse_mode mode) { parse_mode_ = mode; }
    /// Whether a line terminator follows every frame and belongs to it; true at first.
    void set_terminated(bool terminated) { terminated_ = terminated; }
    /// Whether the first byte of a bad header stays and becomes part of the reported noise, rather than being dropped
    /// by itself; false at first.
    void set_keep_on_error(bool keep) { keep_on_error_ = keep; }

    /// Whether the byte at index `i` is there (fetched if need be) and is CR or LF.
    bool is_newline(int i);

    /// Takes the next packet.
    ///
    /// - `frame`: the frame and its terminator, cut to `size`; the rest of a frame that is cut stays in the stream.
    ///   Following NULs, CRs and LFs are dropped, also when they arrive later. Without terminators an LF is appended
    ///   when there is room.
    /// - `reply`: the text to its LF, then up to two NULs as far as there is room. On purpose `len` counts the NULs.
    /// - `noise`: up to and including the next line end and the CRs and LFs that follow it, or 4190 bytes when
    ///   no line end comes. Looking for what follows the line end fetches, so on a stream that waits for
    ///   bytes without limit the report waits for the byte after it.
    /// - `acknowledgement`: recognised only when the byte is the only one buffered; with others behind it, it starts a
    ///   frame, or rather noise.
    ///
    /// With a `size` of 0 packets are reported with a `len` of 0 and stay in the stream.
    /// \param buf   room for `size` bytes
    /// \param len   set to the bytes put into `buf`; untouched when the result is `nothing`
    /// \return a `Packet_kind`; `nothing` also without a stream
    int get_packet(unsigned char* buf, int size, int& len);

    /// Takes the next packet, for callers who want frames only.
    /// \return the frame's `len`; minus `len` for noise; 0 for everything else, of which acknowledgements are reported
    ///         through the debug printer
    int get_packet(unsigned char* buf, int size);

    /// Takes the next packet into the bytes that `message` has in use; their number stays as it is.
    int get_packet(Vesk_message& message, int& len);

    /// The account since construction. `init` keeps it; what `init` drops is not in it.
    const Byte_counts& get_byte_counts() const { return counts_; }

  private:
    enum class Look { complete, incomplete, restart, bad };
    struct Header;

    bool has(unsigned count);
    bool is_acknowledgement();
    bool lacks_prompt();
    Look look_at_header(Header& header);
    Look refuse_header();
    bool accepted_by_checker(const Header& header);
    Look look_for_end(const Header& header, unsigned& whole);
    Look look_for_end_of_reply(unsigned& whole);
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
    [[maybe_unused]] bool second_setting_; // no parsing step asks for it; it keeps its place in the object
    bool keep_on_error_;
    Dummy_checker default_checker_;
    Checker* checker_;

    bool frame_just_taken_; // the rest of its line end may still come
    Byte_counts counts_;
};
