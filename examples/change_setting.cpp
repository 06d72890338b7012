// Changes one value in an ini file and leaves every other line as it is: change_setting unit.ini display brightness 80
#include <glue/data_stream/File_data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr int longest_line = 4200;

Inifile_record record_of(const unsigned char (&line)[longest_line]) {
    Inifile_record record;
    std::memcpy(record.text, line, Inifile_record::longest_line);
    record.parse();
    return record;
}

/// Copies a file's lines, one of them with another value. \return whether it was there
bool copy_changed(Data_stream& file, const std::string& section, const std::string& key, const char* new_value) {
    Inifile_parser parser(&file);
    std::string present_section;
    bool changed = false;
    unsigned char line[longest_line] = {};
    int len = 0;
    bool begins = true; // a very long line comes in pieces, of which only the first is looked at
    while (const int kind = parser.get_packet(line, sizeof line, len, true)) {
        const Inifile_record record = begins ? record_of(line) : Inifile_record();
        begins = kind == 1;
        if (record.type == Inifile_record::type_section)
            present_section = record.get_name();
        const bool is_key = record.type <= Inifile_record::type_empty;
        if (is_key && present_section == section && key == record.get_name()) {
            std::printf("%s was %s\n", record.get_name(), record.as_cstring());
            Inifile_record::out_cstring(file, record.get_name(), new_value);
            changed = true;
            continue;
        }
        file.__write(line, static_cast<unsigned>(len));
        if (kind == 1)
            file.printf("\n"); // whichever line end it was
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
    const bool written = std::fflush(out) == 0 && std::ferror(out) == 0; // a full disk is known here only
    file.close_write();                                                  // the medium has it now
    if (changed && written && std::rename(new_path.c_str(), path.c_str()) == 0)
        return 0;
    if (changed)
        std::perror(new_path.c_str());
    else
        std::fprintf(stderr, "no %s in [%s]\n", argv[3], argv[2]);
    std::remove(new_path.c_str());
    return 1;
}
