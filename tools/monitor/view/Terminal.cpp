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

constexpr int bits_of_a_byte_on_a_line = 10; // with start and stop bit

volatile std::sig_atomic_t stop_is_wanted = 0;

extern "C" void note_stop(int) {
    stop_is_wanted = 1;
}

void handle_stop(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTSTP, &action, nullptr);
}

/// The terminal behind standard output, to write and to read. Standard input may be something else.
int open_terminal() {
    const int mode = fcntl(STDOUT_FILENO, F_GETFL);
    if (mode >= 0 && (mode & O_ACCMODE) == O_RDWR)
        return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    char name[128];
    if (ttyname_r(STDOUT_FILENO, name, sizeof name) != 0)
        return -1;
    return open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// LINES and COLUMNS are for terminals that do not know their size. Curses would believe them before the others too,
/// and never see a change.
void forget_size_of_environment(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return;
    unsetenv("LINES");
    unsetenv("COLUMNS");
}

short events(int fd, short wanted) {
    pollfd look{fd, wanted, 0};
    return poll(&look, 1, 0) > 0 ? look.revents : short(0);
}

/// Knows what keys send that send more than a character: ESC [ ... and a letter or "~", or ESC O and a character.
/// Letters in there are no keys.
class Key_sequence {
  public:
    /// Whether the next character belongs to one.
    bool takes(int character) {
        constexpr int escape = 0x1B;
        const Part part = std::exchange(part_, Part::none);
        if (part == Part::parameters) {
            if (character < 0x40 || character > 0x7E)
                part_ = Part::parameters;
        } else if (part == Part::introducer && (character == '[' || character == 'O')) {
            part_ = character == '[' ? Part::parameters : Part::last;
        } else if (character == escape) {
            part_ = Part::introducer;
        } else {
            return part == Part::last;
        }
        return true;
    }

  private:
    enum class Part { none, introducer, parameters, last }; // what is expected
    Part part_ = Part::none;
};

} // namespace

struct Terminal::Curses {
    std::FILE* file = nullptr;
    Key_sequence sequence;
    SCREEN* screen = nullptr;
    chtype attributes[static_cast<int>(Style::bad) + 1] = {};

    int fd() const { return fileno(file); }

    void choose_attributes() {
        const bool colours = has_colors() && start_color() == OK && use_default_colors() == OK;
        short next = 0;
        const auto coloured = [&](short colour, chtype without) {
            if (!colours || init_pair(++next, colour, -1) != OK)
                return without;
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
};

Terminal::Terminal() {
    if (isatty(STDOUT_FILENO) != 1)
        problem_ = "standard output is no terminal";
    else if (!open() && problem_.empty())
        problem_ = std::string("cannot use the terminal: ") + std::strerror(errno);
}

bool Terminal::open() {
    const int fd = open_terminal();
    if (fd < 0)
        return false;
    std::FILE* const file = fdopen(fd, "r+");
    if (!file)
        return false;
    termios settings{};
    tcgetattr(fd, &settings);
    forget_size_of_environment(fd);
    // With handlers of ours in their places none of curses's run, which do more than a handler may.
    handle_stop(note_stop);
    SCREEN* const screen = newterm(nullptr, file, file);
    if (!screen || !rescue::capability("cup")) {
        if (screen) {
            endwin();
            delscreen(screen);
        }
        std::fclose(file);
        handle_stop(SIG_DFL);
        problem_ = "cannot address the cursor of this terminal: is TERM right?";
        return false;
    }
    curses_ = std::make_unique<Curses>();
    curses_->file = file;
    curses_->screen = screen;
    under_job_control_ = tcgetpgrp(fd) >= 0;
    rescue::prepare(fd, settings);
    cbreak();
    noecho();
    nonl();
    nodelay(stdscr, TRUE);
    typeahead(-1); // keys do not hold up the screen
    curs_set(0);
    curses_->choose_attributes();
    return true;
}

Terminal::~Terminal() {
    if (!curses_)
        return;
    if (is_ours()) {
        let_flow();
        endwin();
    }
    rescue::forget();
    handle_stop(SIG_DFL);
    delscreen(curses_->screen);
    std::fclose(curses_->file);
}

Terminal::Size Terminal::size() const {
    return {getmaxy(stdscr), getmaxx(stdscr)};
}

unsigned Terminal::bytes_per_second() const {
    const int baud = baudrate();
    return baud > 0 ? static_cast<unsigned>(baud / bits_of_a_byte_on_a_line) : 0;
}

int Terminal::key() {
    constexpr int control_l = 'L' & 0x1F;
    if (stop_is_wanted)
        stop();
    if (!rescue::is_in_foreground(curses_->fd())) {
        given_back_ = true;
        return no_key;
    }
    if (given_back_) {
        if (has_lost_control())
            return no_key;
        given_back_ = false;
        clearok(curscr, TRUE);
        refresh();
        return changed;
    }
    const int key = getch();
    if (key == ERR)
        return no_key;
    if (key == KEY_RESIZE || key == control_l) {
        clearok(curscr, TRUE);
        return changed;
    }
    return curses_->sequence.takes(key) ? other_key : key;
}

/// As a program that knows nothing of this would stop.
void Terminal::stop() {
    stop_is_wanted = 0;
    if (is_ours())
        endwin();
    given_back_ = true;
    handle_stop(SIG_DFL);
    raise(SIGTSTP);
    handle_stop(note_stop);
}

/// Whether the session that the terminal was to be taken back in has ended meanwhile.
bool Terminal::has_lost_control() const {
    return under_job_control_ && tcgetpgrp(curses_->fd()) < 0;
}

/// Whoever touches the terminal in the background is stopped for it.
bool Terminal::is_ours() const {
    return !given_back_ && rescue::is_in_foreground(curses_->fd());
}

/// Output that somebody holds would hold the program's end up. Without flow control nothing is held.
void Terminal::let_flow() {
    termios settings{};
    if (is_ready() || tcgetattr(curses_->fd(), &settings) != 0)
        return;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
    tcsetattr(curses_->fd(), TCSANOW, &settings);
}

bool Terminal::is_ready() const {
    return is_ours() && (events(curses_->fd(), POLLOUT) & POLLOUT) != 0;
}

bool Terminal::is_gone() const {
    return (events(curses_->fd(), 0) & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

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
