#include <support/faults/Watched_file_calls.h>

#include <cerrno>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::optional<int> as_int(Watched_file_calls::Answer answer) {
    return answer ? std::optional(static_cast<int>(*answer)) : std::nullopt;
}

std::string path_of(int fd) {
    char path[4096];
    const ssize_t length = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
    return length < 0 ? std::string() : std::string(path, static_cast<std::size_t>(length));
}

} // namespace

Watched_file_calls::Watched_file_calls(const std::string& folder, Decision decision)
    : folder_(fs::canonical(folder).string()), decision_(std::move(decision)) {
    calls_.openat = [this](const char* name, int flags) { return as_int(by_name("open", name, flags)); };
    calls_.unlinkat = [this](const char* name) { return as_int(by_name("unlink", name)); };
    calls_.fstatat = [this](const char* name) { return as_int(by_name("stat", name)); };
    calls_.faccessat = [this](const char* name) { return as_int(by_name("access", name)); };
    calls_.renameat = [this](const char* from, const char* to) { return as_int(by_name("rename", from, 0, to)); };
    calls_.fsync = [this](int fd) { return as_int(by_descriptor("sync", fd)); };
    calls_.fstat = [this](int fd) { return as_int(by_descriptor("stat", fd)); };
    calls_.close = [this](int fd) { return as_int(by_descriptor("close", fd)); };
    calls_.lseek = [this](int fd) { return as_int(by_descriptor("seek", fd)); };
    calls_.flock = [this](int fd) { return as_int(by_descriptor("lock", fd)); };
    calls_.fchmod = [this](int fd) { return as_int(by_descriptor("mode", fd)); };
    calls_.fchown = [this](int fd) { return as_int(by_descriptor("owner", fd)); };
    calls_.ftruncate = [this](int fd, off_t length) {
        return as_int(by_descriptor("truncate", fd, static_cast<long>(length)));
    };
    calls_.ioctl = [this](int fd, unsigned long request) {
        return as_int(by_descriptor("ioctl", fd, static_cast<long>(request)));
    };
    transfers_.read_into = [this](int fd, void*, size_t size) {
        return by_descriptor("read", fd, static_cast<long>(size));
    };
    transfers_.write_from = [this](int fd, const void* source, size_t size) {
        return by_descriptor("write", fd, static_cast<long>(size), std::string(static_cast<const char*>(source), size));
    };
}

Watched_file_calls::Answer Watched_file_calls::by_descriptor(const char* what, int fd, long number, std::string bytes) {
    if (deciding_ || fd < 0)
        return std::nullopt;
    const std::string path = path_of(fd);
    if (path.compare(0, folder_.size(), folder_) != 0)
        return std::nullopt;
    return decide({what, fs::path(path).filename().string(), fd, std::move(bytes), "", number});
}

/// A name without a path is one in the folder: other code does not use such names while a test observes.
Watched_file_calls::Answer Watched_file_calls::by_name(const char* what, const char* name, long number,
                                                       const char* to) {
    const std::string path = name;
    if (deciding_ || (path[0] == '/' && path.compare(0, folder_.size(), folder_) != 0))
        return std::nullopt;
    const std::string last = fs::path(path[path.size() - 1] == '/' ? path.substr(0, path.size() - 1) : path).filename();
    return decide({what, last, -1, "", to, number});
}

Watched_file_calls::Answer Watched_file_calls::decide(const File_call& call) {
    deciding_ = true;
    errno = 0;
    const Answer answer = decision_(call);
    deciding_ = false;
    return answer;
}
