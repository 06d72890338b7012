#pragma once

#include <glue/export.h>

#include <platform/String.h>

#include <cstdint>

class Data_stream;

/// One line of an ini file: what it is, and, for a key, its value.
///
///     Inifile_parser parser(&file);
///     Inifile_record record;
///     while (parser.get_packet(record, true)) {
///         if (record.type == Inifile_record::type_section)
///             section = record.get_name();
///         else if (std::strcmp(record.get_name(), "speed") == 0 && record.as_type(Inifile_record::type_double))
///             speed = record.as_double(-1);
///         record.init();
///     }
///
/// The text of a value alone decides its type. Whole numbers have 32 bits everywhere: one that is larger becomes the
/// largest, one that is smaller the smallest. The locale never matters. Not synchronised.
class GLUE_EXPORT Inifile_record {
  public:
    enum type_t : std::uint32_t {
        type_long = 0,
        type_ulong = 1,
        type_double = 2,
        type_bool = 3,
        type_string = 4,
        type_byte_array = 5,
        type_empty = 6,   ///< a key without a value
        type_section = 7, ///< "[name]"
        type_comment = 8, ///< begins with "#"
        type_blank = 9,
        type_none = 10 ///< nothing parsed yet, or a line that is nothing of all this
    };

    /// Longest line that is kept whole.
    static constexpr unsigned longest_line = 256;

    Inifile_record();
    /// A copy's pointers lead into its own text.
    Inifile_record(const Inifile_record& other);
    Inifile_record& operator=(const Inifile_record& other);

    /// Forgets the line.
    void init();

    /// Finds out what `text` is. Cuts it up by NULs: afterwards it begins with the key.
    ///
    /// On purpose, a line without "=" that is no section, comment or blank leaves `type` as it was.
    void parse();

    /// A section's name, or the key. White space in front of a key belongs to it.
    const char* get_name() const;
    /// Where in a list of keys, which a null ends, the name stands. \return -1 when it does not, or nothing was parsed
    int search_key(const char* const* keys) const;

    // ---- The value ----

    /// Whether the value can be read as a type without losing its meaning. On purpose a floating-point number is no
    /// boolean here, though `as_bool` makes it one.
    bool as_type(type_t wanted) const { return _as_type(wanted); }
    bool _as_type(type_t wanted) const;

    /// A floating-point number is cut towards zero, and to what 32 bits hold; what is no number at all is 0.
    std::int32_t as_long() const;
    std::uint32_t as_ulong() const;
    /// \param decimals  a floating-point number is rounded to so many; negative: not at all
    double as_double(int decimals) const;
    /// Whether a number is other than 0, by 1e-8 at least if it is a floating-point one.
    bool as_bool() const;
    const char* as_cstring() const;
    String<257> as_string() const;
    /// On purpose the whole text of the value, with what marks it as a byte array. `count` becomes its length.
    const char* as_byte_array(unsigned int& count) const;

    // Writing a line: whether all of it was taken. One that fits 255 characters goes in one write; a longer one in
    // pieces, of which some may have gone when another is refused.

    /// A blank line and "[name]".
    static bool start_section(Data_stream& stream, const char* name);
    /// "key=value"
    static bool out_cstring(Data_stream& stream, const char* key, const char* value);
    static bool out_long(Data_stream& stream, const char* key, std::int32_t value);
    static bool out_ulong(Data_stream& stream, const char* key, std::uint32_t value);
    /// With so many decimals - 14 when that is negative -, 31 characters at most, and without zeros at the end but for
    /// one behind the point. On purpose a number without decimals loses its zeros, too: 10 becomes "1".
    static bool out_double(Data_stream& stream, const char* key, double value, int precision);
    static bool out_bool(Data_stream& stream, const char* key, bool value);
    static bool out_string(Data_stream& stream, const char* key, const String_base& value);
    /// On purpose not what `parse` takes for a byte array, unless the data begins with "{" and ends with "})".
    static bool out_byte_array(Data_stream& stream, const char* key, const unsigned char* data, unsigned int count);

    // ---- Fields ----

    char text[longest_line + 1]; ///< the line as read
    type_t type;
    union {
        std::int32_t as_signed;
        std::uint32_t as_unsigned;
        double as_floating;
        bool as_boolean;
        const char* as_data; ///< of a string or a byte array
    } value;
    std::uint32_t length;      ///< bytes of a string or a byte array
    std::uint32_t line_length; ///< characters of the line as read
    char* value_text;          ///< the value, or a section's name

  private:
    bool parse_section();
    void parse_value();
    bool parse_whole_number();
    bool parse_floating();
    bool parse_bool();
    bool parse_byte_array();
};
