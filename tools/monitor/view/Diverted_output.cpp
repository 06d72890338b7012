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

constexpr long long most_memory = 1 << 20; // begun anew beyond that

} // namespace

Diverted_output::Diverted_output() : file_(memfd_create("receiver_monitor output", MFD_CLOEXEC)) {
    if (file_ < 0)
        return; // then it goes onto the screen
    fcntl(file_, F_SETFL, O_APPEND);
    std::fflush(stdout);
    divert(STDOUT_FILENO, output_);
    if (isatty(STDERR_FILENO) == 1)
        divert(STDERR_FILENO, errors_);
    rescue::tell(file_, errors_);
}

Diverted_output::~Diverted_output() {
    if (file_ < 0)
        return;
    std::fflush(stdout);
    rescue::tell(-1, -1);
    restore(STDOUT_FILENO, output_);
    restore(STDERR_FILENO, errors_);
    std::string said = said_from(std::max(0LL, size() - rescue::longest_telling));
    if (said.size() == static_cast<std::size_t>(rescue::longest_telling))
        said.erase(0, said.find('\n') + 1); // no half line
    std::fwrite(said.data(), 1, said.size(), stderr);
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

std::string Diverted_output::said_from(long long offset) const {
    std::string said(static_cast<std::size_t>(std::max(0LL, size() - offset)), '\0');
    const ssize_t count = pread(file_, said.data(), said.size(), offset);
    said.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return said;
}

std::string Diverted_output::last_new_line() {
    if (file_ < 0 || size() <= looked_at_)
        return {};
    std::string said = said_from(looked_at_);
    looked_at_ += static_cast<long long>(said.size());
    if (looked_at_ > most_memory && ftruncate(file_, 0) == 0)
        looked_at_ = 0;
    said.erase(said.find_last_not_of("\r\n") + 1);
    return said.substr(said.find_last_of("\r\n") + 1);
}

} // namespace live_view
