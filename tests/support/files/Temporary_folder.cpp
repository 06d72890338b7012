#include <support/files/Temporary_folder.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>

namespace fs = std::filesystem;

Temporary_folder::Temporary_folder() : path_((fs::temp_directory_path() / "glue_test_XXXXXX").string()) {
    if (!mkdtemp(path_.data()))
        ADD_FAILURE() << "cannot create the folder " << path_;
}

Temporary_folder::~Temporary_folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string Temporary_folder::path(std::string_view name) const {
    return (fs::path(path_) / name).string();
}

std::string Temporary_folder::make_file(std::string_view name, std::string_view content) const {
    std::ofstream file(path(name), std::ios::binary);
    if (!(file << content).flush())
        ADD_FAILURE() << "cannot write the file " << path(name);
    return path(name);
}

std::string Temporary_folder::make_fifo(std::string_view name) const {
    if (mkfifo(path(name).c_str(), 0600) != 0)
        ADD_FAILURE() << "cannot create the FIFO " << path(name);
    return path(name);
}

std::string Temporary_folder::content_of(std::string_view name) const {
    std::ifstream file(path(name), std::ios::binary);
    if (!file)
        ADD_FAILURE() << "missing file " << path(name);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool Temporary_folder::has(std::string_view name) const {
    return fs::exists(path(name));
}

std::vector<std::string> Temporary_folder::names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(path_))
        found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}
