#include <glue/inifile/Inifile_parser.h>

#include <glue/data_stream/Data_stream.h>
#include <glue/inifile/Inifile_record.h>

#include <algorithm>

namespace {

constexpr unsigned char cr = '\r';
constexpr unsigned char lf = '\n';

constexpr unsigned int longest_line = 4197; // what a stream's ring holds, with room to see the line's end

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
}

/// Some fetches claim success and bring nothing: what counts is what is there.
bool Inifile_parser::has_byte(unsigned int offset) {
    return stream_->bytes_avail() > offset || (stream_->bytes_avail(offset + 1) && stream_->bytes_avail() > offset);
}

bool Inifile_parser::is_newline(int offset) {
    const auto place = static_cast<unsigned int>(offset);
    if (offset < 0 || !has_byte(place))
        return false;
    const unsigned char byte = (*stream_)[place];
    return byte == cr || byte == lf;
}

/// Moves the position to where the line ends. \return false when it does not yet
bool Inifile_parser::find_end(unsigned int longest, bool take_partial) {
    position_ = std::min(position_, longest); // the buffer may have been larger when the line was looked at
    if (position_ > stream_->bytes_avail())
        position_ = 0; // somebody else took bytes out of the stream
    while (has_byte(position_)) {
        if (is_newline(static_cast<int>(position_)) || position_ >= longest)
            return true;
        ++position_;
    }
    return position_ != 0 && take_partial;
}

int Inifile_parser::take_line(unsigned char* buf, unsigned int longest, int& len, bool take_partial) {
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

/// Takes CR or LF, and the other one if it follows. \return whether there was one
bool Inifile_parser::take_line_end() {
    if (!is_newline(0))
        return false;
    const unsigned char first = (*stream_)[0];
    stream_->drop(1);
    if (is_newline(0) && (*stream_)[0] != first)
        stream_->drop(1);
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
