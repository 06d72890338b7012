#pragma once

#include <glue/export.h>

#include <platform/String.h>

#include <cstdint>

class Data_stream;

/// One line of an ini file: its kind and, for a key, its value.
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
/// The text of a value alone decides its type. Whole numbers have 32 bits on every machine: a larger one becomes the
/// largest, a smaller one the smallest. The locale never matters. Not synchronised.
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
        type_none = 10 ///< nothing parsed yet, or a line of no other kind
    };

    /// The most characters of a line that are kept.
    static constexpr unsigned longest_line = 256;

    Inifile_record();
    /// The pointers of a copy point into its own text.
    Inifile_record(const Inifile_record& other);
    Inifile_record& operator=(const Inifile_record& other);

    /// Empties the record.
    void init();

    /// Classifies `text`. Separates its parts by NULs: afterwards it begins with the key.
    ///
    /// On purpose, a line without "=" that is no section, comment or blank line leaves `type` unchanged.
    void parse();

    /// The name of a section, or the key. White space before a key belongs to it.
    const char* get_name() const;
    /// \return the index of the name in a list of keys that ends with a null; -1 when the list does not have it or
    ///         nothing was parsed
    int search_key(const char* const* keys) const;

    // ---- The value ----

    /// Whether the value can be read as a type without losing its meaning. On purpose a floating-point number is no
    /// boolean here, although `as_bool` converts it.
    bool as_type(type_t wanted) const { return _as_type(wanted); }
    bool _as_type(type_t wanted) const;

    /// A floating-point number is truncated toward zero and limited to 32 bits. A value that is no number is 0.
    std::int32_t as_long() const;
    std::uint32_t as_ulong() const;
    /// \param decimals  a floating-point number is rounded to this many; negative: not rounded
    double as_double(int decimals) const;
    /// Whether a number is not 0; for a floating-point number: whether it is at least 1e-8 away from 0.
    bool as_bool() const;
    const char* as_cstring() const;
    String<257> as_string() const;
    /// On purpose the whole text of the value, including the marks of a byte array. `count` is set to its length.
    const char* as_byte_array(unsigned int& count) const;

    // ---- Writing a line ----
    //
    // Each returns whether the stream accepted all of it. A line of at most 255 characters is one write. A longer one
    // is several: some of them may be written when another fails.

    /// A blank line and "[name]".
    static bool start_section(Data_stream& stream, const char* name);
    /// "key=value"
    static bool out_cstring(Data_stream& stream, const char* key, const char* value);
    static bool out_long(Data_stream& stream, const char* key, std::int32_t value);
    static bool out_ulong(Data_stream& stream, const char* key, std::uint32_t value);
    /// With `precision` decimals, 14 when that is negative, cut at 31 characters. Zeros at the end are removed, except
    /// one directly after the point. On purpose a number without decimals loses its zeros, too: 10 becomes "1".
    static bool out_double(Data_stream& stream, const char* key, double value, int precision);
    static bool out_bool(Data_stream& stream, const char* key, bool value);
    static bool out_string(Data_stream& stream, const char* key, const String_base& value);
    /// On purpose `parse` reads this as a byte array only if the data begins with "{" and ends with "})".
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
    char* value_text;          ///< the value, or the name of a section

  private:
    bool parse_section();
    void parse_value();
    bool parse_whole_number();
    bool parse_floating();
    bool parse_bool();
    bool parse_byte_array();
};
