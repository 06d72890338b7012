#include <support/fakes/Standard_input.h>

#include <support/files/descriptors.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

Standard_input::Standard_input(int fd) : original_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) {
    if (dup2(fd, STDIN_FILENO) < 0)
        ADD_FAILURE() << "cannot use descriptor " << fd << " as the standard input";
}

Standard_input::Standard_input(std::string_view bytes) : original_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const int file = memfd_create("input", MFD_CLOEXEC);
    write_all(file, bytes);
    if (lseek(file, 0, SEEK_SET) != 0 || dup2(file, STDIN_FILENO) < 0)
        ADD_FAILURE() << "cannot make a standard input";
    close(file);
}

Standard_input::~Standard_input() {
    if (original_ < 0) { // the process had none
        close(STDIN_FILENO);
        return;
    }
    dup2(original_, STDIN_FILENO);
    close(original_);
}
