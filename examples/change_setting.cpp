// Changes one value in an ini file and leaves the rest as it is: change_setting unit.ini display brightness 80
#include <glue/data_stream/File_data_stream.h>
#include <glue/inifile/Inifile_parser.h>
#include <glue/inifile/Inifile_record.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 5 || !File_data_stream::exists(argv[1])) {
        std::fprintf(stderr, "usage: change_setting FILE SECTION KEY VALUE\n");
        return 1;
    }
    const std::string path = argv[1], wanted_section = argv[2], wanted_key = argv[3], new_value = argv[4];
    const std::string new_path = path + ".new";
    std::remove(new_path.c_str()); // writing appends

    File_data_stream file;
    file.open_read(path.c_str());
    file.open_write(new_path.c_str());
    Inifile_parser parser(&file);
    Inifile_record record;
    std::string section;
    bool changed = false;
    for (; parser.get_packet(record, true); record.init()) {
        if (record.type == Inifile_record::type_section) {
            section = record.get_name();
            Inifile_record::start_section(file, record.get_name()); // puts a blank line in front
        } else if (record.type == Inifile_record::type_comment) {
            file.printf("%s\n", record.text);
        } else if (record.type != Inifile_record::type_blank && record.type != Inifile_record::type_none) {
            const bool is_it = section == wanted_section && wanted_key == record.get_name();
            if (is_it)
                std::printf("%s was %s\n", record.get_name(), record.as_cstring());
            Inifile_record::out_cstring(file, record.get_name(), is_it ? new_value.c_str() : record.as_cstring());
            changed = changed || is_it;
        }
    }
    file.close_write(); // the medium has it now
    if (changed)
        return std::rename(new_path.c_str(), path.c_str()) == 0 ? 0 : 1;
    std::remove(new_path.c_str());
    std::fprintf(stderr, "no %s in [%s]\n", argv[3], argv[2]);
    return 1;
}
