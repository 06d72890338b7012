#include <glue/inifile/Inifile_parser.h>

#include "detail/line_end.h"

#include <glue/data_stream/Data_stream.h>
#include <glue/inifile/Inifile_record.h>

#include <algorithm>

using glue_detail::ends_line;

namespace {

constexpr unsigned char cr = '\r';
constexpr unsigned char lf = '\n';

constexpr unsigned int longest_line = 4197; // a stream's ring holds it together with its end

} // namespace

Inifile_parser::Inifile_parser(Data_stream* stream) {
    init(stream);
}

void Inifile_parser::init(Data_stream* stream) {
    stream_ = stream;
    init();
}

void Inifile_parser::init() {
    stream_->drop_all();
    position_ = 0;
    second_half_ = 0;
}

/// Some fetches report success and add nothing: only what is buffered afterwards counts.
bool Inifile_parser::has_byte(unsigned int offset) {
    return stream_->bytes_avail() > offset || (stream_->bytes_avail(offset + 1) && stream_->bytes_avail() > offset);
}

bool Inifile_parser::is_newline(int offset) {
    const auto position = static_cast<unsigned int>(offset);
    return offset >= 0 && has_byte(position) && ends_line((*stream_)[position]);
}

/// Drops the second half of the last line end if it is the next byte.
void Inifile_parser::skip_second_half() {
    if (second_half_ == 0 || !has_byte(0))
        return;
    if ((*stream_)[0] == second_half_)
        stream_->drop(1);
    second_half_ = 0;
}

/// Moves the position to the end of the line. \return false when the line does not end yet
bool Inifile_parser::find_end(unsigned int longest, bool take_partial) {
    position_ = std::min(position_, longest); // the last call may have had a larger buffer
    if (position_ > stream_->bytes_avail())
        position_ = 0; // another consumer has taken bytes
    while (has_byte(position_)) {
        if (ends_line((*stream_)[position_]) || position_ >= longest)
            return true;
        ++position_;
    }
    return position_ != 0 && take_partial;
}

int Inifile_parser::take_line(unsigned char* buf, unsigned int longest, int& len, bool take_partial) {
    skip_second_half();
    if (!find_end(std::min(longest, longest_line), take_partial))
        return 0;
    const unsigned int length = position_;
    static_cast<Data_stream*>(stream_)->get_data(buf, length, 0);
    stream_->drop(length);
    buf[length] = '\0';
    len = static_cast<int>(length);
    position_ = 0;
    return take_line_end() ? 1 : 2;
}

/// Drops the line end that is buffered, or its first half. Fetches nothing. \return whether there was one
bool Inifile_parser::take_line_end() {
    if (stream_->bytes_avail() == 0 || !ends_line((*stream_)[0]))
        return false;
    second_half_ = (*stream_)[0] == cr ? lf : cr;
    stream_->drop(1);
    if (stream_->bytes_avail() > 0)
        skip_second_half();
    return true;
}

int Inifile_parser::get_packet(unsigned char* buf, int size, int& len, bool take_partial) {
    constexpr int spare = 3;
    return size <= spare ? 0 : take_line(buf, static_cast<unsigned int>(size - spare), len, take_partial);
}

bool Inifile_parser::get_packet(Inifile_record& record, bool take_partial) {
    int len = 0;
    if (take_line(reinterpret_cast<unsigned char*>(record.text), Inifile_record::longest_line, len, take_partial) == 0)
        return false;
    record.parse();
    return true;
}
