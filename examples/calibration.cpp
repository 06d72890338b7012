// Keeps a machine's calibration in a file that tells when it is damaged: calibration FILE [KEY=VALUE ...], for example
// calibration machine wheelbase=2890 antenna_height=3150
#include <glue/data_stream/File_checksummed_data_stream.h>

#include <cstdio>
#include <map>
#include <string>

using Calibration = std::map<std::string, std::string>;

/// Nothing of a file comes out of the stream before all of it has been verified, and its checksum never does.
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
    return line.empty(); // every line has its end
}

/// The new file takes the place of the old one when it is known to be good: closing it does not tell of a full medium.
static bool save(const std::string& path, const Calibration& calibration) {
    const std::string new_path = path + ".new";
    std::string text = "calibration\n"; // without it one short value would be a content too short to be verified
    for (const auto& [key, value] : calibration)
        text.append(key).append(" ").append(value).append("\n");
    File_checksummed_data_stream file;
    if (!file.open_write(new_path.c_str()))
        return false;
    file.write_direct(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
    file.close_write();
    return file.open_read(new_path.c_str()) && std::rename(new_path.c_str(), path.c_str()) == 0;
}

/// Takes KEY=VALUE. Neither holds another "=": opening a file that was cut off would take it for the checksum's.
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
    bool understood = argc >= 2;
    if (understood && File_data_stream::exists(argv[1]) && !load(argv[1], calibration)) {
        std::fputs("damaged: remove it, and calibrate the machine again\n", stderr);
        return 1;
    }
    for (int i = 2; i < argc; ++i)
        understood = understood && change(calibration, argv[i]);
    if (!understood) {
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
