#include "Diverted_output.h"

#include "rescue.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace live_view {

namespace {

constexpr long long most_memory = 1 << 20; // bytes; the file is emptied when it is larger

} // namespace

Diverted_output::Diverted_output() : file_(memfd_create("receiver_monitor output", MFD_CLOEXEC)) {
    if (file_ < 0)
        return; // the output stays on the screen
    fcntl(file_, F_SETFL, O_APPEND);
    std::fflush(stdout);
    divert(STDOUT_FILENO, original_output_);
    if (isatty(STDERR_FILENO) == 1)
        divert(STDERR_FILENO, original_errors_);
    rescue::set_output(file_, original_errors_);
}

Diverted_output::~Diverted_output() {
    if (file_ < 0)
        return;
    std::fflush(stdout);
    rescue::set_output(-1, -1);
    restore(STDOUT_FILENO, original_output_);
    restore(STDERR_FILENO, original_errors_);
    std::string text = text_from(std::max(0LL, size() - rescue::longest_output));
    if (text.size() == static_cast<std::size_t>(rescue::longest_output))
        text.erase(0, text.find('\n') + 1); // begins with a whole line
    std::fwrite(text.data(), 1, text.size(), stderr);
    close(file_);
}

void Diverted_output::divert(int fd, int& original) {
    original = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(file_, fd);
}

void Diverted_output::restore(int fd, int& original) {
    if (original < 0)
        return;
    dup2(original, fd);
    close(original);
}

long long Diverted_output::size() const {
    struct stat file {};
    return fstat(file_, &file) == 0 ? file.st_size : 0;
}

std::string Diverted_output::text_from(long long offset) const {
    std::string text(static_cast<std::size_t>(std::max(0LL, size() - offset)), '\0');
    const ssize_t count = pread(file_, text.data(), text.size(), offset);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

std::string Diverted_output::last_new_line() {
    if (file_ < 0 || size() <= read_to_)
        return {};
    std::string text = text_from(read_to_);
    read_to_ += static_cast<long long>(text.size());
    if (read_to_ > most_memory && ftruncate(file_, 0) == 0)
        read_to_ = 0;
    text.erase(text.find_last_not_of("\r\n") + 1);
    return text.substr(text.find_last_of("\r\n") + 1);
}

} // namespace live_view
