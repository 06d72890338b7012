// States, each seen when keys are read:
//
//      closed ----- curses starts ----> drawing ------------ destructor: restore ------------> closed
//                                       |  ^
//         stop from the keyboard:       |  |  in the foreground again:
//         restore, stop the process;    |  |  draw the whole screen
//         or in the background          v  |
//                                     released --- destructor: the terminal stays as it is ---> closed
//
// "released" also stays when the session has lost its terminal meanwhile: another session may use it.

#include "Terminal.h"

#include "rescue.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#define NCURSES_NOMACROS
#include <curses.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace live_view {

namespace {

constexpr int bits_per_byte_on_line = 10; // with start and stop bit

volatile std::sig_atomic_t stop_requested = 0;

extern "C" void note_stop_request(int) {
    stop_requested = 1;
}

void handle_stop(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTSTP, &action, nullptr);
}

/// Opens the terminal of standard output for reading and writing. Standard input may be something else.
int open_terminal() {
    const int mode = fcntl(STDOUT_FILENO, F_GETFL);
    if (mode >= 0 && (mode & O_ACCMODE) == O_RDWR)
        return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    char name[128];
    if (ttyname_r(STDOUT_FILENO, name, sizeof name) != 0)
        return -1;
    return ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// The same as a C file, as curses wants it. \return null, with `errno` set and nothing left open, on failure
std::FILE* open_terminal_file() {
    const int fd = open_terminal();
    if (fd < 0)
        return nullptr;
    std::FILE* const file = fdopen(fd, "r+");
    if (!file) {
        const int error = errno;
        close(fd);
        errno = error;
    }
    return file;
}

/// LINES and COLUMNS are for terminals that do not report their size. Curses would prefer them for all terminals, and
/// then never notice a change.
void forget_size_of_environment(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return;
    unsetenv("LINES");
    unsetenv("COLUMNS");
}

short ready_events(int fd, short events) {
    pollfd descriptor{fd, events, 0};
    return poll(&descriptor, 1, 0) > 0 ? descriptor.revents : short(0);
}

/// Recognises the characters of keys that send several: ESC [ ... and a letter or "~", or ESC O and a character. The
/// letters in them are not keys of their own.
class Key_sequence {
  public:
    /// Whether the next character belongs to such a key.
    bool includes(int character) {
        constexpr int escape = 0x1B;
        const Part part = std::exchange(expected_, Part::none);
        if (part == Part::parameters) {
            if (character < 0x40 || character > 0x7E)
                expected_ = Part::parameters;
        } else if (part == Part::introducer && (character == '[' || character == 'O')) {
            expected_ = character == '[' ? Part::parameters : Part::last;
        } else if (character == escape) {
            expected_ = Part::introducer;
        } else {
            return part == Part::last;
        }
        return true;
    }

  private:
    enum class Part { none, introducer, parameters, last };
    Part expected_ = Part::none;
};

struct Close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

} // namespace

struct Terminal::Curses {
    explicit Curses(std::FILE* terminal) : file(terminal) {}
    ~Curses() {
        if (screen)
            delscreen(screen);
    }

    int fd() const { return fileno(file.get()); }

    void choose_attributes() {
        const bool colours = has_colors() && start_color() == OK && use_default_colors() == OK;
        short next = 0;
        const auto coloured = [&](short colour, chtype otherwise) {
            if (!colours || init_pair(++next, colour, -1) != OK)
                return otherwise;
            return static_cast<chtype>(COLOR_PAIR(next));
        };
        const auto set = [this](Style style, chtype look) { attributes[static_cast<int>(style)] = look; };
        set(Style::plain, A_NORMAL);
        set(Style::changed, A_BOLD);
        set(Style::title, A_REVERSE);
        set(Style::heading, coloured(COLOR_CYAN, A_NORMAL));
        set(Style::good, coloured(COLOR_GREEN, A_BOLD));
        set(Style::doubtful, coloured(COLOR_YELLOW, A_NORMAL));
        set(Style::bad, coloured(COLOR_RED, A_NORMAL));
    }

    std::unique_ptr<std::FILE, Close_file> file; // the screen writes to it, so it is closed after the screen
    SCREEN* screen = nullptr;
    termios earlier_settings{};
    Key_sequence sequence;
    chtype attributes[static_cast<int>(Style::bad) + 1] = {};
};

// ---- Opening and closing ----

Terminal::Terminal() {
    if (isatty(STDOUT_FILENO) != 1)
        problem_ = "standard output is no terminal";
    else if (!open())
        problem_ = std::string("cannot use the terminal: ") + std::strerror(errno);
    else if (!start_curses())
        problem_ = "cannot address the cursor of this terminal: is TERM right?";
    else
        configure_curses();
}

bool Terminal::open() {
    std::FILE* const file = open_terminal_file();
    if (!file)
        return false;
    curses_ = std::make_unique<Curses>(file);
    tcgetattr(curses_->fd(), &curses_->earlier_settings);
    forget_size_of_environment(curses_->fd());
    return true;
}

bool Terminal::start_curses() {
    // Curses installs no handler where there is one already. Its own would do more than a handler may.
    handle_stop(note_stop_request);
    std::FILE* const file = curses_->file.get();
    curses_->screen = newterm(nullptr, file, file);
    if (curses_->screen && rescue::capability("cup"))
        return true;
    if (curses_->screen)
        endwin();
    curses_.reset();
    handle_stop(SIG_DFL);
    return false;
}

void Terminal::configure_curses() {
    under_job_control_ = tcgetpgrp(curses_->fd()) >= 0;
    rescue::arm(curses_->fd(), curses_->earlier_settings);
    cbreak();
    noecho();
    nonl();
    nodelay(stdscr, TRUE);
    typeahead(-1); // keys do not delay the screen
    curs_set(0);
    curses_->choose_attributes();
}

Terminal::~Terminal() {
    if (!curses_)
        return;
    if (is_ours()) {
        disable_flow_control();
        endwin();
    }
    rescue::disarm();
    handle_stop(SIG_DFL);
}

/// Output that flow control holds (Ctrl-S) would delay the end of the program.
void Terminal::disable_flow_control() {
    termios settings{};
    if (is_ready() || tcgetattr(curses_->fd(), &settings) != 0)
        return;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
    tcsetattr(curses_->fd(), TCSANOW, &settings);
}

// ---- State of the terminal ----

Terminal::Size Terminal::size() const {
    return {getmaxy(stdscr), getmaxx(stdscr)};
}

unsigned Terminal::bytes_per_second() const {
    const int baud = baudrate();
    return baud > 0 ? static_cast<unsigned>(baud / bits_per_byte_on_line) : 0;
}

/// A background process that touched the terminal would be stopped by the system.
bool Terminal::is_ours() const {
    return !released_ && rescue::is_in_foreground(curses_->fd());
}

/// Whether the session that had the terminal at first no longer has it.
bool Terminal::has_lost_session() const {
    return under_job_control_ && tcgetpgrp(curses_->fd()) < 0;
}

bool Terminal::is_ready() const {
    return is_ours() && (ready_events(curses_->fd(), POLLOUT) & POLLOUT) != 0;
}

bool Terminal::is_gone() const {
    return (ready_events(curses_->fd(), 0) & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// ---- Keys ----

int Terminal::key() {
    constexpr int control_l = 'L' & 0x1F;
    if (stop_requested)
        stop();
    if (!rescue::is_in_foreground(curses_->fd())) {
        released_ = true;
        return no_key;
    }
    if (released_)
        return key_after_release();
    const int key = getch();
    if (key == ERR)
        return no_key;
    if (key == KEY_RESIZE || key == control_l) {
        clearok(curscr, TRUE);
        return changed;
    }
    return curses_->sequence.includes(key) ? other_key : key;
}

/// Acquires the terminal again.
int Terminal::key_after_release() {
    if (has_lost_session())
        return no_key;
    released_ = false;
    clearok(curscr, TRUE);
    refresh();
    return changed;
}

/// Restores the terminal and stops the process as SIGTSTP does by default. Returns when the process continues.
void Terminal::stop() {
    stop_requested = 0;
    if (is_ours())
        endwin();
    released_ = true;
    handle_stop(SIG_DFL);
    raise(SIGTSTP);
    handle_stop(note_stop_request);
}

// ---- Drawing ----

void Terminal::show(const Grid& grid) {
    for (int row = 0; row < grid.rows(); ++row)
        for (int column = 0; column < grid.columns(); ++column) {
            const Cell cell = grid.at(row, column);
            const chtype look = curses_->attributes[static_cast<int>(cell.style)];
            mvaddch(row, column, static_cast<unsigned char>(cell.character) | look);
        }
    refresh();
}

} // namespace live_view
