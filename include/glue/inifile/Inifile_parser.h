#pragma once

#include <glue/export.h>

class Data_stream;
class Inifile_record;

/// Cuts the text of an ini file into lines, from any stream. See `Inifile_record` for a sample.
///
/// CR, LF, CR LF and LF CR each end one line. What has no line end yet waits in the stream. Does not own the stream;
/// one thread at a time.
class GLUE_EXPORT Inifile_parser {
  public:
    /// Discards what the stream has buffered.
    explicit Inifile_parser(Data_stream* stream);
    void init(Data_stream* stream);
    void init();

    /// Whether the stream has a byte at this place, fetching it if need be, and it is CR or LF.
    bool is_newline(int offset);

    /// Takes the next line out of the stream, without its end, and puts a NUL behind it.
    ///
    /// A line longer than `size` - 3 bytes, or than 4197, is cut; the rest is the next line.
    /// \param size          bytes of `buf`; 3 or fewer hold nothing
    /// \param len           set to the line's length
    /// \param take_partial  take a line that has no end (yet), unless it is empty
    /// \return 0 nothing to take yet; 1 a line with its end; 2 one that was cut or ended with the data
    int get_packet(unsigned char* buf, int size, int& len, bool take_partial);

    /// The same into a record, 256 bytes at most, which is then parsed.
    ///
    /// On purpose the record is not emptied first: a line that is nothing keeps the type of the line before.
    /// \return whether there was a line
    bool get_packet(Inifile_record& record, bool take_partial);

  private:
    bool has_byte(unsigned int offset);
    bool find_end(unsigned int longest, bool take_partial);
    bool take_line_end();
    int take_line(unsigned char* buf, unsigned int longest, int& len, bool take_partial);

    Data_stream* stream_;
    unsigned char reserved_[2] = {}; ///< keeps the layout
    unsigned int position_ = 0;      ///< bytes of the line that have been looked at
};
