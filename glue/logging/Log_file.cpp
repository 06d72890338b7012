#include "logging/Log_file.h"

#include <ctime>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

constexpr const char* write_failure = "background log write fail";

bool exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

/// Appends a character unless the text ends with it.
void end_with(std::string& text, char character) {
    if (text.empty() || text.back() != character)
        text += character;
}

/// Whole seconds, UTC.
std::string present_time() {
    timeval now{};
    gettimeofday(&now, nullptr);
    std::tm broken_down{};
    char text[32];
    if (!gmtime_r(&now.tv_sec, &broken_down) || std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &broken_down) == 0)
        return "-unknown-";
    return text;
}

} // namespace

std::string Log_file_naming::folder() const {
    std::string text = directory;
    end_with(text, '/');
    return text;
}

std::string Log_file_naming::prefix() const {
    std::string text = folder() + name + "_" + suffix;
    end_with(text, '_');
    return text;
}

std::string Log_file_naming::unused_path() const {
    const std::string stem = prefix() + present_time();
    std::string path = stem + ".log";
    for (unsigned k = 0; exists(path); ++k) {
        char end[32];
        std::snprintf(end, sizeof end, "_%06u.log", k);
        path = stem + end;
    }
    return path;
}

std::shared_ptr<Log_file> Log_file::open(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "w+e");
    if (!file)
        return nullptr;
    // The pieces are large, and a write that a full disk refuses must fail at once.
    std::setvbuf(file, nullptr, _IONBF, 0);
    return std::shared_ptr<Log_file>(new Log_file(path, file));
}

std::size_t Log_file::write(const unsigned char* bytes, std::size_t count) {
    const std::size_t written = std::fwrite(bytes, 1, count, file_.get());
    if (written < count)
        std::perror(write_failure);
    return written;
}

void Log_file::flush() {
    if (std::fflush(file_.get()) != 0)
        std::perror(write_failure);
}
