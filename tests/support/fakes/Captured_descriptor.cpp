#include <support/fakes/Captured_descriptor.h>

#include <gtest/gtest.h>

Captured_descriptor::Captured_descriptor(int fd) : fd_(fd), original_(dup(fd)), file_(std::tmpfile()) {
    if (original_ < 0 || !file_ || dup2(fileno(file_), fd_) < 0)
        ADD_FAILURE() << "cannot capture descriptor " << fd;
}

Captured_descriptor::~Captured_descriptor() {
    std::fflush(nullptr);
    dup2(original_, fd_);
    close(original_);
    if (file_)
        std::fclose(file_);
}

std::string Captured_descriptor::text() const {
    std::fflush(nullptr);
    std::string result;
    char piece[4096];
    off_t offset = 0;
    for (ssize_t n = 0; (n = pread(fileno(file_), piece, sizeof piece, offset)) > 0; offset += n)
        result.append(piece, static_cast<std::size_t>(n));
    return result;
}
