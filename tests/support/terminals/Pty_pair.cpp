#include <support/terminals/Pty_pair.h>

#include <support/files/descriptors.h>

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

Pty_pair::Pty_pair(Mode mode)
    : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), hang_up_handler_before_(std::signal(SIGHUP, SIG_IGN)) {
    char name[128] = "";
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0) {
        ADD_FAILURE() << "cannot make a pseudo terminal";
        return;
    }
    path_ = name;
    slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0)
        ADD_FAILURE() << "cannot open " << path_;
    termios settings{};
    if (mode == raw && tcgetattr(slave_, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(slave_, TCSANOW, &settings);
    }
}

Pty_pair::~Pty_pair() {
    close_slave();
    hang_up();
    std::signal(SIGHUP, hang_up_handler_before_);
}

void Pty_pair::send(std::string_view bytes) const {
    write_all(master_, bytes);
}

std::string Pty_pair::receive(std::size_t count) const {
    return read_exactly(master_, count);
}

void Pty_pair::hang_up() {
    if (master_ >= 0)
        close(master_);
    master_ = -1;
}

void Pty_pair::close_slave() {
    if (slave_ >= 0)
        close(slave_);
    slave_ = -1;
}

bool Pty_pair::near_end_is_gone() const {
    pollfd waiting{master_, 0, 0};
    return poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLHUP) != 0;
}
