// Changes one value in an ini file. Every other line stays as it is, and all keep their line ends:
// change_setting unit.ini display brightness 80
#include <glue/data_stream/File_data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr int longest_piece = 4197; // of a line: the parser cuts a longer one
constexpr int buffer_size = longest_piece + 3;

Inifile_record record_of(const unsigned char (&line)[buffer_size]) {
    Inifile_record record;
    std::memcpy(record.text, line, Inifile_record::longest_line);
    record.parse();
    return record;
}

/// The end of the next line, which the parser removes: CR, LF or both; "" when the line is cut or the file ends first.
std::string next_line_end(Inifile_parser& parser, Data_stream& file) {
    int offset = 0;
    while (offset < longest_piece && !parser.is_newline(offset) && file.bytes_avail(offset + 1U))
        ++offset;
    std::string end;
    for (; end.size() < 2 && parser.is_newline(offset); ++offset) {
        const auto byte = static_cast<char>(file[static_cast<unsigned>(offset)]);
        if (byte == end[0])
            break; // an empty line follows
        end += byte;
    }
    return end;
}

void write(Data_stream& file, const std::string& text) {
    file.__write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
}

/// Copies a file's lines, one of them with another value. \return whether the file has that value
bool copy_changed(Data_stream& file, const std::string& section, const std::string& key, const std::string& value) {
    Inifile_parser parser(&file);
    std::string present_section;
    bool changed = false;
    bool begins = true;       // a very long line arrives in pieces: only the first one is parsed
    bool is_replaced = false; // the line that the piece belongs to
    unsigned char line[buffer_size] = {};
    int len = 0;
    for (std::string end = next_line_end(parser, file); parser.get_packet(line, sizeof line, len, true) != 0;
         end = next_line_end(parser, file)) {
        if (begins) {
            const Inifile_record record = record_of(line);
            if (record.type == Inifile_record::type_section)
                present_section = record.get_name();
            is_replaced =
                record.type <= Inifile_record::type_empty && present_section == section && key == record.get_name();
            if (is_replaced) {
                std::printf("%s was %s\n", record.get_name(), record.as_cstring());
                write(file, key + "=" + value);
                changed = true;
            }
        }
        if (!is_replaced)
            file.__write(line, static_cast<unsigned>(len));
        write(file, end);
        begins = !end.empty();
    }
    return changed;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: change_setting FILE SECTION KEY VALUE\n");
        return 1;
    }
    const std::string path = argv[1];
    const std::string new_path = path + ".new";
    std::FILE* const in = std::fopen(path.c_str(), "r");
    std::FILE* const out = in ? std::fopen(new_path.c_str(), "w") : nullptr;
    if (!out) {
        std::perror(in ? new_path.c_str() : path.c_str());
        return 1;
    }
    File_data_stream file(in, out);
    const bool changed = copy_changed(file, argv[2], argv[3], argv[4]);
    const bool written = std::fflush(out) == 0 && std::ferror(out) == 0; // only this reports a full disk
    file.close_write();                                                  // now everything is on the medium
    if (changed && written && std::rename(new_path.c_str(), path.c_str()) == 0)
        return 0;
    if (changed)
        std::perror(new_path.c_str());
    else
        std::fprintf(stderr, "no %s in [%s]\n", argv[3], argv[2]);
    std::remove(new_path.c_str());
    return 1;
}
