#include <platform/file_foreach.h>

#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

namespace {

struct Directory_closer {
    void operator()(DIR* directory) const { closedir(directory); }
};

bool is_directory(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

bool file_foreach(const std::string& directory, bool recursive, const std::function<void(const std::string&)>& visit) {
    const std::unique_ptr<DIR, Directory_closer> entries(opendir(directory.c_str()));
    if (!entries)
        return false;
    const bool separated = !directory.empty() && directory.back() == '/';
    while (const dirent* const entry = readdir(entries.get())) {
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        const std::string path = directory + (separated ? "" : "/") + std::string(name);
        if (recursive && is_directory(path))
            file_foreach(path, true, visit);
        else
            visit(path);
    }
    return true;
}
