#include "config_file.h"

#include <glue/data_stream/File_data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace config_file {

namespace {

/// The option of a key; null when there is none, or none that makes sense in a file.
CLI::Option* option_named(CLI::App& app, const std::string& key) {
    if (key == "config" || key == "help")
        return nullptr;
    for (CLI::Option* option : app.get_options())
        if (option->check_lname(key) || (option->get_positional() && option->get_name(true) == key))
            return option;
    return nullptr;
}

class Reader {
  public:
    Reader(CLI::App& app, const std::set<std::string>& superseded) : app_(app), superseded_(superseded) {
        for (const CLI::Option* option : app.get_options())
            if (option->count() > 0)
                given_.insert(option);
    }

    /// \return an error message for the line; nothing when it is right
    std::optional<std::string> read(const unsigned char* line, int len);

  private:
    std::optional<std::string> read_key(const Inifile_record& record);
    std::optional<std::string> set(CLI::Option& option, const Inifile_record& record);

    CLI::App& app_;
    const std::set<std::string>& superseded_;
    std::set<const CLI::Option*> given_; ///< on the command line
    std::set<std::string> seen_;
    bool is_own_section_ = true;
};

std::optional<std::string> Reader::read(const unsigned char* line, int len) {
    const auto length = static_cast<std::size_t>(len);
    if (length > Inifile_record::longest_line)
        return "longer than " + std::to_string(Inifile_record::longest_line) + " characters";
    if (std::memchr(line, '\0', length))
        return std::string("not a text");
    Inifile_record record;
    std::memcpy(record.text, line, length);
    record.text[length] = '\0';
    record.parse();
    switch (record.type) {
    case Inifile_record::type_section:
        is_own_section_ = record.get_name() == app_.get_name();
        return std::nullopt;
    case Inifile_record::type_comment:
    case Inifile_record::type_blank:
        return std::nullopt;
    case Inifile_record::type_none:
        return std::string("neither a key with its value nor a section");
    default:
        return is_own_section_ ? read_key(record) : std::nullopt;
    }
}

std::optional<std::string> Reader::read_key(const Inifile_record& record) {
    const std::string key = record.get_name();
    CLI::Option* const option = option_named(app_, key);
    if (!option)
        return "there is no option \"" + key + "\"";
    if (!seen_.insert(key).second)
        return "\"" + key + "\" for the second time";
    if (given_.count(option) > 0 || superseded_.count(key) > 0)
        return std::nullopt;
    return set(*option, record);
}

std::optional<std::string> Reader::set(CLI::Option& option, const Inifile_record& record) {
    const bool is_flag = option.get_expected_min() == 0;
    if (is_flag && !record.as_type(Inifile_record::type_bool))
        return std::string("\"") + record.get_name() + "\" is true or false";
    try {
        option.add_result(is_flag ? (record.as_bool() ? "true" : "false") : record.as_cstring());
        option.run_callback();
    } catch (const CLI::ParseError& error) {
        return error.what();
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> read(CLI::App& app, const std::string& path, const std::set<std::string>& superseded) {
    std::FILE* const handle = std::fopen(path.c_str(), "re");
    if (!handle)
        return "cannot open " + path + ": " + std::strerror(errno);
    File_data_stream file(handle, nullptr);
    Inifile_parser parser(&file);
    Reader reader(app, superseded);
    unsigned char
        line[Inifile_record::longest_line + 5]; // one more than a record holds, to recognise a line that is too long
    int len = 0;
    for (unsigned number = 1; parser.get_packet(line, sizeof line, len, true) != 0; ++number)
        if (const auto wrong = reader.read(line, len))
            return path + ":" + std::to_string(number) + ": " + *wrong;
    if (std::ferror(handle))
        return "cannot read " + path;
    return std::nullopt;
}

} // namespace config_file
