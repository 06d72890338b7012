#include <support/fakes/Simulated_line.h>

#include <support/faults/Replaced_ioctl.h>
#include <support/faults/in_c_library.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utility>

namespace {

std::atomic<Simulated_line*> simulated{nullptr};

/// The simulated line, when the descriptor belongs to it; else null.
Simulated_line* line_of(int fd) {
    Simulated_line* const line = simulated;
    return line && line->is_device_of(fd) ? line : nullptr;
}

/// The settings of an interactive terminal, with the handshake by characters and HUPCL.
termios cooked() {
    termios settings{};
    settings.c_iflag = BRKINT | ISTRIP | ICRNL | IXON | IXOFF;
    settings.c_oflag = OPOST | ONLCR;
    settings.c_lflag = ECHO | ICANON | ISIG | IEXTEN;
    settings.c_cflag = CS7 | PARENB | HUPCL;
    settings.c_cc[VMIN] = 9;
    settings.c_cc[VTIME] = 9;
    cfsetispeed(&settings, B1200);
    cfsetospeed(&settings, B1200);
    return settings;
}

} // namespace

Simulated_line::Simulated_line() : settings_(cooked()) {
    struct stat status {};
    if (fstat(terminal_.slave(), &status) != 0)
        ADD_FAILURE() << "cannot determine the device of " << path();
    device_ = status.st_rdev;
    EXPECT_EQ(simulated.exchange(this), nullptr);
}

Simulated_line::~Simulated_line() {
    simulated = nullptr;
}

termios Simulated_line::settings() const {
    const std::lock_guard guard(mutex_);
    return settings_;
}

void Simulated_line::set_settings(const termios& settings) {
    const std::lock_guard guard(mutex_);
    settings_ = settings;
}

int Simulated_line::modem_lines() const {
    const std::lock_guard guard(mutex_);
    return modem_lines_;
}

void Simulated_line::set_modem_lines(int lines) {
    const std::lock_guard guard(mutex_);
    modem_lines_ = lines;
}

void Simulated_line::set_counters(const serial_icounter_struct& counters) {
    const std::lock_guard guard(mutex_);
    counters_ = counters;
}

void Simulated_line::fail(std::set<std::string> calls) {
    const std::lock_guard guard(mutex_);
    failing_ = std::move(calls);
}

std::vector<std::string> Simulated_line::take_calls() {
    const std::lock_guard guard(mutex_);
    return std::exchange(calls_, {});
}

bool Simulated_line::is_device_of(int fd) const {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == device_;
}

/// \return the result of the call
int Simulated_line::record(const char* call) {
    calls_.emplace_back(call);
    if (failing_.count(call) == 0)
        return 0;
    errno = EIO;
    return -1;
}

int Simulated_line::get(termios* settings) {
    const std::lock_guard guard(mutex_);
    const int result = record("tcgetattr");
    if (result == 0)
        *settings = settings_;
    return result;
}

int Simulated_line::set(int action, const termios* settings) {
    const std::lock_guard guard(mutex_);
    const int result = record(action == TCSANOW ? "tcsetattr" : "tcsetattr later");
    if (result == 0)
        settings_ = *settings;
    return result;
}

bool Simulated_line::control(unsigned long request, void* argument, int& result) {
    const std::lock_guard guard(mutex_);
    switch (request) {
    case TIOCMGET:
        result = record("TIOCMGET");
        if (result == 0)
            *static_cast<int*>(argument) = modem_lines_;
        return true;
    case TIOCMSET:
        result = record("TIOCMSET");
        if (result == 0)
            modem_lines_ = *static_cast<const int*>(argument);
        return true;
    case TIOCGICOUNT:
        result = record("TIOCGICOUNT");
        if (result == 0)
            *static_cast<serial_icounter_struct*>(argument) = counters_;
        return true;
    default:
        return false;
    }
}

// The program's own definitions win over those of the shared libraries.

extern "C" int tcgetattr(int fd, termios* settings) noexcept {
    static const auto original = in_c_library(tcgetattr);
    Simulated_line* const line = line_of(fd);
    return line ? line->get(settings) : original(fd, settings);
}

extern "C" int tcsetattr(int fd, int action, const termios* settings) noexcept {
    static const auto original = in_c_library(tcsetattr);
    Simulated_line* const line = line_of(fd);
    return line ? line->set(action, settings) : original(fd, action, settings);
}

namespace {

const Replaced_ioctl answered_by_a_line([](int fd, unsigned long request, void* argument, int& result) {
    Simulated_line* const line = line_of(fd);
    return line && line->control(request, argument, result);
});

} // namespace
