// Keeps the calibration of a machine in a file with a checksum, which shows any damage: calibration FILE [KEY=VALUE
// ...], for example calibration machine wheelbase=2890 antenna_height=3150
#include <glue/data_stream/File_checksummed_data_stream.h>

#include <cstdio>
#include <map>
#include <string>

using Calibration = std::map<std::string, std::string>;

/// Loads a file. The stream delivers nothing before it has verified the whole file, and never delivers the checksum.
static bool load(const std::string& path, Calibration& calibration) {
    File_checksummed_data_stream file;
    if (!file.open_read(path.c_str()))
        return false;
    std::string line;
    for (unsigned char byte = 0; static_cast<Data_stream&>(file).get_data(&byte, 1, 0); file.drop(1)) {
        if (byte != '\n') {
            line += static_cast<char>(byte);
            continue;
        }
        if (const auto blank = line.find(' '); blank != std::string::npos)
            calibration[line.substr(0, blank)] = line.substr(blank + 1);
        line.clear();
    }
    return line.empty(); // the last line has its line end
}

/// Replaces the file by a new one that has been verified: closing a file does not report a full disk.
static bool save(const std::string& path, const Calibration& calibration) {
    const std::string new_path = path + ".new";
    std::string text = "calibration\n"; // one short value alone is too short to be verified
    for (const auto& [key, value] : calibration)
        text.append(key).append(" ").append(value).append("\n");
    File_checksummed_data_stream file;
    if (!file.open_write(new_path.c_str()))
        return false;
    file.write_direct(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
    file.close_write();
    return file.open_read(new_path.c_str()) && std::rename(new_path.c_str(), path.c_str()) == 0;
}

/// Sets a value from KEY=VALUE. Another "=" is refused: in a truncated file it would be read as that of the checksum.
static bool change(Calibration& calibration, const std::string& argument) {
    const auto equals = argument.find('=');
    if (equals == 0 || equals == std::string::npos || argument.find_first_of("=\n", equals + 1) != std::string::npos ||
        argument.find_first_of(" \n") < equals)
        return false;
    calibration[argument.substr(0, equals)] = argument.substr(equals + 1);
    return true;
}

int main(int argc, char** argv) {
    Calibration calibration;
    bool valid = argc >= 2;
    if (valid && File_data_stream::exists(argv[1]) && !load(argv[1], calibration)) {
        std::fputs("damaged: remove it, and calibrate the machine again\n", stderr);
        return 1;
    }
    for (int i = 2; i < argc; ++i)
        valid = valid && change(calibration, argv[i]);
    if (!valid) {
        std::fputs("usage: calibration FILE [KEY=VALUE ...]\n", stderr);
        return 1;
    }
    if (argc > 2 && !save(argv[1], calibration)) {
        std::fputs("not saved\n", stderr);
        return 1;
    }
    for (const auto& [key, value] : calibration)
        std::printf("%s %s\n", key.c_str(), value.c_str());
}
