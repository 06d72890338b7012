// States of the parser:
//
//        whole frame, reply or acknowledgement: delivered
//               +------+
//               |      v
//        synchronised: the stream is at the start of a frame <--------------+
//                 |                                                         |
//                 | framing error                                           | line end, or the longest
//                 v                                                         | noise: delivered as noise
//        not synchronised: searching for the next line end -----------------+
//               |      ^
//               +------+
//        no line end yet: the next call searches again from the first byte

#include <glue/vesk/Vesk_parser.h>

#include <glue/data_stream/Data_stream.h>
#include <glue/vesk/Vesk_message.h>

#include "detail/hex_digits.h"
#include "detail/line_end.h"

#include <platform/Debug.h>

#include <algorithm>

using glue_detail::ends_line;

namespace {

constexpr unsigned longest_noise = 4190;        // without a line end
constexpr unsigned last_index_to_extend = 4198; // noise with its line end then fits into the stream's ring

bool separates(unsigned char byte) {
    return byte == '\0' || ends_line(byte);
}

bool may_identify(unsigned char byte) {
    return byte >= 0x30 && byte <= 0x7E;
}

} // namespace

struct Vesk_parser::Header {
    unsigned char c0, c1;
    unsigned length; // of the frame, without a terminator

    int identifier() const { return Vesk_message::msg_id(static_cast<char>(c0), static_cast<char>(c1)); }
    bool is_reply() const {
        return identifier() == Vesk_message::msg_id('R', 'E') || identifier() == Vesk_message::msg_id('E', 'R');
    }
};

Vesk_parser::Checker::~Checker() = default;

bool Vesk_parser::Dummy_checker::check(Data_stream&, unsigned short, int) {
    return true;
}

Vesk_parser::Vesk_parser() : Vesk_parser(nullptr, false) {}

Vesk_parser::Vesk_parser(Data_stream* stream, bool discard)
    : stream_(stream),
      synchronised_(1),
      parse_mode_(parse_messages),
      terminated_(true),
      second_setting_(true),
      keep_on_error_(false),
      checker_(&default_checker_),
      frame_just_taken_(false) {
    if (discard && stream_)
        stream_->drop_all();
}

void Vesk_parser::init() {
    synchronised_ = 1;
    frame_just_taken_ = false;
    if (stream_)
        stream_->drop_all();
}

void Vesk_parser::init(Data_stream* stream) {
    stream_ = stream;
    init();
}

void Vesk_parser::set_checker(Checker* checker) {
    checker_ = checker ? checker : &default_checker_;
}

bool Vesk_parser::is_newline(int i) {
    if (!stream_ || i < 0)
        return false;
    const auto index = static_cast<unsigned>(i);
    return has(index + 1) && ends_line((*stream_)[index]);
}

int Vesk_parser::get_packet(unsigned char* buf, int size, int& len) {
    if (!stream_)
        return nothing;
    const unsigned capacity = static_cast<unsigned>(std::max(size, 0));
    while (synchronised_) {
        drop_line_end();
        if (is_acknowledgement())
            return take_acknowledgement(buf, capacity, len);

        Header header{};
        unsigned whole = 0;
        Check check = check_header(header);
        if (check == Check::complete)
            check = find_end(header, whole);

        if (check == Check::incomplete)
            return nothing;
        if (check == Check::complete)
            return terminated_ && header.is_reply() ? take_reply(whole, buf, capacity, len)
                                                    : take_frame(whole, buf, capacity, len);
        if (check == Check::bad)
            synchronised_ = 0;
    }
    return resynchronise(buf, capacity, len);
}

int Vesk_parser::get_packet(unsigned char* buf, int size) {
    int len = 0;
    switch (get_packet(buf, size, len)) {
    case frame:
        return len;
    case noise:
        return -len;
    case acknowledgement:
        Debug::Print::dprint("DTP Response unhandled\n");
        return 0;
    default:
        return 0;
    }
}

int Vesk_parser::get_packet(Vesk_message& message, int& len) {
    return get_packet(message.get_ptr(), static_cast<int>(message.get_size()), len);
}

// ---- Checking what is buffered; consumes only single bytes that cannot start a frame ----

/// Whether `count` bytes are buffered. Fetches those that are missing, then counts them: some streams report success
/// with fewer bytes.
bool Vesk_parser::has(unsigned count) {
    return stream_->bytes_avail() >= count || (stream_->bytes_avail(count) && stream_->bytes_avail() >= count);
}

bool Vesk_parser::is_acknowledgement() {
    if (stream_->bytes_avail() != 1)
        return false;
    const unsigned char byte = (*stream_)[0];
    return byte == accepted_byte || byte == refused_byte;
}

/// Whether an echoed line lacks its ">". After a frame, the first bytes may still be the rest of its line end.
bool Vesk_parser::lacks_prompt() {
    return parse_mode_ == parse_echoed_lines && !frame_just_taken_ && stream_->bytes_avail() > 1 &&
           (*stream_)[0] != '>' && (*stream_)[1] != '>';
}

Vesk_parser::Check Vesk_parser::check_header(Header& header) {
    if (lacks_prompt())
        return Check::bad;
    unsigned char bytes[Vesk_message::header_size];
    const bool received = has(sizeof bytes) && stream_->get_data(bytes, sizeof bytes, 0);
    if (frame_just_taken_ && stream_->bytes_avail() > 0)
        return Check::restart; // the fetched bytes may begin with the rest of a line end
    if (!received)
        return Check::incomplete;

    header.c0 = bytes[0];
    header.c1 = bytes[1];
    if (header.c0 == '\0') {
        drop_one(counts_.separators);
        return Check::restart;
    }
    if (!may_identify(header.c0) || !may_identify(header.c1))
        return Check::bad;

    const int length = glue_detail::hex_value(bytes + 2, 3);
    if (length < 0)
        return refuse_header();
    header.length = Vesk_message::header_size + static_cast<unsigned>(length);
    return accepted_by_checker(header) ? Check::complete : refuse_header();
}

Vesk_parser::Check Vesk_parser::refuse_header() {
    if (!keep_on_error_)
        drop_one(counts_.noise);
    return Check::bad;
}

bool Vesk_parser::accepted_by_checker(const Header& header) {
    if (checker_ == &default_checker_)
        return true;
    const int length = static_cast<int>(header.length);
    if (checker_->check(*stream_, static_cast<unsigned short>(header.identifier()), length))
        return true;
    Debug::Print::dprint("Unexpected msg %c%c(%d) in %s[%d]\n", header.c0, header.c1, length,
                         stream_->copy_description().data(), static_cast<int>(stream_->bytes_avail()));
    return false;
}

/// Finds the size of a frame or reply with its terminator, when it is buffered whole.
Vesk_parser::Check Vesk_parser::find_end(const Header& header, unsigned& whole) {
    whole = header.length + (terminated_ ? 1 : 0);
    if (!has(whole))
        return Check::incomplete;
    if (!terminated_)
        return Check::complete;
    if (header.is_reply())
        return find_end_of_reply(whole);
    if (ends_line((*stream_)[whole - 1]))
        return Check::complete;
    drop_one(counts_.noise);
    return Check::restart;
}

/// A reply ends with an LF. It may come one byte later than the length says: some receivers count the CR before the LF,
/// some do not.
Vesk_parser::Check Vesk_parser::find_end_of_reply(unsigned& whole) {
    const unsigned end = (*stream_)[whole - 1] == '\n' ? whole - 1 : whole;
    if (!has(end + 1))
        return Check::incomplete;
    if ((*stream_)[end] != '\n') {
        drop_one(counts_.noise);
        return Check::restart;
    }
    whole = end + 1;
    return Check::complete;
}

/// Finds the index of the first line end, or of the last byte of the longest noise.
/// \return false when neither has been received
bool Vesk_parser::find_end_of_noise(unsigned& index) {
    unsigned char piece[256];
    for (index = 0; index < longest_noise;) {
        if (!has(index + 1))
            return false;
        const unsigned buffered = std::min(stream_->bytes_avail(), longest_noise);
        const unsigned count = std::min(buffered - index, static_cast<unsigned>(sizeof piece));
        stream_->get_data(piece, count, index);
        const auto found = static_cast<unsigned>(std::find_if(piece, piece + count, ends_line) - piece);
        index += found;
        if (found < count)
            return true;
    }
    index = longest_noise - 1;
    return true;
}

// ---- Taking ----

int Vesk_parser::take_acknowledgement(unsigned char* buf, unsigned size, int& len) {
    len = static_cast<int>(take(1, buf, size, counts_.acknowledgements));
    return acknowledgement;
}

int Vesk_parser::take_reply(unsigned whole, unsigned char* buf, unsigned size, int& len) {
    unsigned count = take(whole, buf, size, counts_.replies);
    for (int nul = 0; nul < 2 && count < size; ++nul)
        buf[count++] = '\0';
    len = static_cast<int>(count); // on purpose with the NULs
    return reply;
}

int Vesk_parser::take_frame(unsigned whole, unsigned char* buf, unsigned size, int& len) {
    unsigned count = take(whole, buf, size, counts_.frames);
    frame_just_taken_ = true;
    drop_line_end();
    if (!terminated_ && count < size)
        buf[count++] = '\n';
    len = static_cast<int>(count);
    return frame;
}

int Vesk_parser::resynchronise(unsigned char* buf, unsigned size, int& len) {
    unsigned last = 0;
    if (!find_end_of_noise(last))
        return nothing;
    synchronised_ = 1;
    while (last <= last_index_to_extend && is_newline(static_cast<int>(last + 1)))
        ++last;
    len = static_cast<int>(take(last + 1, buf, size, counts_.noise));
    return noise;
}

/// Moves `count` bytes, at most `size`, from the stream to `buf`. \return how many
unsigned Vesk_parser::take(unsigned count, unsigned char* buf, unsigned size, std::uint64_t& counted_as) {
    count = std::min(count, size);
    stream_->get_data(buf, count, 0);
    stream_->drop(count);
    counted_as += count;
    frame_just_taken_ = false;
    return count;
}

void Vesk_parser::drop_one(std::uint64_t& counted_as) {
    stream_->drop(1);
    ++counted_as;
}

/// Drops the buffered NULs, CRs and LFs that follow a frame; a later call drops those that arrive later.
void Vesk_parser::drop_line_end() {
    while (frame_just_taken_ && stream_->bytes_avail() > 0) {
        if (separates((*stream_)[0]))
            drop_one(counts_.separators);
        else
            frame_just_taken_ = false;
    }
}
