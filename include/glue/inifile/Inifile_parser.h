#pragma once

#include <glue/export.h>

class Data_stream;
class Inifile_record;

/// Cuts the text of an ini file, from any stream, into lines. See `Inifile_record` for a sample.
///
/// CR, LF, CR LF and LF CR each end one line. A line is returned as soon as the first byte of its end has arrived: no
/// more is fetched for it. A second byte that arrives later is skipped before the next line. Bytes without a line end
/// stay in the stream. The parser does not own the stream. One thread at a time.
class GLUE_EXPORT Inifile_parser {
  public:
    /// Discards what the stream has buffered.
    explicit Inifile_parser(Data_stream* stream);
    void init(Data_stream* stream);
    void init();

    /// Whether the stream has a byte at this offset, which is fetched if necessary, and it is CR or LF.
    bool is_newline(int offset);

    /// Moves the next line, without its end, out of the stream into `buf` and adds a NUL.
    ///
    /// A line longer than `size` - 3 bytes, or than 4197, is cut; the rest is the next line.
    /// \param size          bytes of `buf`; 3 or fewer hold nothing
    /// \param len           set to the line's length
    /// \param take_partial  also take a line whose end has not arrived, unless it is empty
    /// \return 0 no line yet; 1 a line with its end; 2 a line that was cut or has no end yet
    int get_packet(unsigned char* buf, int size, int& len, bool take_partial);

    /// Moves the next line, cut at 256 bytes, into the record, and parses it.
    ///
    /// On purpose the record is not emptied first: a line of no known kind keeps the type of the line before.
    /// \return whether there was a line
    bool get_packet(Inifile_record& record, bool take_partial);

  private:
    bool has_byte(unsigned int offset);
    void skip_second_half();
    bool find_end(unsigned int longest, bool take_partial);
    bool take_line_end();
    int take_line(unsigned char* buf, unsigned int longest, int& len, bool take_partial);

    Data_stream* stream_;
    unsigned char second_half_ = 0; ///< CR or LF that completes the last line end if it is the next byte; 0: nothing
    unsigned char reserved_ = 0;    ///< keeps the layout
    unsigned int position_ = 0;     ///< bytes of the line that hold no line end
};
