#include <support/terminals/Terminal_session.h>

#include <support/files/descriptors.h>
#include <support/processes/processes.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <vterm.h>
}

struct Terminal_session::Emulator {
    explicit Emulator(Size size) : terminal(vterm_new(size.rows, size.columns)), screen(vterm_obtain_screen(terminal)) {
        callbacks.settermprop = note_property;
        fallbacks.csi = note_unknown_sequence;
        vterm_set_utf8(terminal, 1);
        vterm_screen_set_callbacks(screen, &callbacks, this);
        vterm_screen_set_unrecognised_fallbacks(screen, &fallbacks, this);
        vterm_screen_enable_altscreen(screen, 1);
        vterm_screen_reset(screen, 1);
    }
    ~Emulator() { vterm_free(terminal); }
    Emulator(const Emulator&) = delete;
    Emulator& operator=(const Emulator&) = delete;

    static int note_property(VTermProp property, VTermValue* value, void* user) {
        auto* const self = static_cast<Emulator*>(user);
        if (property == VTERM_PROP_ALTSCREEN)
            self->alternate_screen = value->boolean != 0;
        if (property == VTERM_PROP_CURSORVISIBLE)
            self->cursor_visible = value->boolean != 0;
        return 1;
    }

    /// What this emulator does not know it leaves out, and the screen would be wrong.
    static int note_unknown_sequence(const char* leader, const long*, int, const char*, char command, void*) {
        const bool shapes_cursor = leader && std::strcmp(leader, "?") == 0 && command == 'c';
        const bool keeps_title = command == 't';
        if (!shapes_cursor && !keeps_title)
            ADD_FAILURE() << "the emulator does not know the control sequence \"" << command << "\"";
        return 0;
    }

    VTermScreenCell cell(int row, int column) const {
        VTermScreenCell cell{};
        vterm_screen_get_cell(screen, {row, column}, &cell);
        return cell;
    }

    VTerm* const terminal;
    VTermScreen* const screen;
    VTermScreenCallbacks callbacks{};
    VTermParserCallbacks fallbacks{};
    bool alternate_screen = false;
    bool cursor_visible = true;
};

Terminal_session::Terminal_session(const std::string& path, const std::vector<std::string>& arguments, Size size,
                                   const std::string& terminal_type)
    : size_(size), master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), emulator_(std::make_unique<Emulator>(size)) {
    char name[128] = "";
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0) {
        ADD_FAILURE() << "cannot make a pseudo terminal";
        return;
    }
    slave_path_ = name;
    slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    make_non_blocking(master_);
    resize(size);
    settings_before_ = settings();
    start(path, arguments, terminal_type);
}

Terminal_session::~Terminal_session() {
    if (process_ > 1) {
        kill(-process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(slave_);
    close(master_);
}

/// The program leads a session of its own, and the terminal is the session's.
void Terminal_session::start(const std::string& path, const std::vector<std::string>& arguments,
                             const std::string& terminal_type) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, slave_path_.c_str(), O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> words{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);

    const std::string type = "TERM=" + terminal_type;
    std::string preferences = "GLUE_MONITOR_PREFERENCES="; // none; not those of whoever runs the test
    std::vector<char*> environment{const_cast<char*>(type.c_str()), preferences.data()};
    for (char** variable = environ; *variable; ++variable) {
        const std::string_view text = *variable;
        const auto sets = [=](const char* name) { return text.rfind(name, 0) == 0; };
        if (!sets("TERM=") && !sets("LINES=") && !sets("COLUMNS=") && !sets("GLUE_MONITOR_PREFERENCES="))
            environment.push_back(*variable);
    }
    environment.push_back(nullptr);

    if (posix_spawn(&process_, path.c_str(), &actions, &attributes, words.data(), environment.data()) != 0) {
        ADD_FAILURE() << "cannot start " << path;
        process_ = -1;
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
}

void Terminal_session::press(std::string_view keys) {
    write_all(master_, keys);
}

void Terminal_session::resize(Size size) {
    size_ = size;
    vterm_set_size(emulator_->terminal, size.rows, size.columns);
    winsize window{};
    window.ws_row = static_cast<unsigned short>(size.rows);
    window.ws_col = static_cast<unsigned short>(size.columns);
    EXPECT_EQ(ioctl(master_, TIOCSWINSZ, &window), 0);
}

void Terminal_session::signal(int number) {
    send_signal(process_, number);
}

void Terminal_session::take_output() {
    char piece[4096];
    for (;;) {
        const ssize_t count = read(master_, piece, sizeof piece);
        if (count <= 0)
            return;
        output_.append(piece, static_cast<std::size_t>(count));
        vterm_input_write(emulator_->terminal, piece, static_cast<std::size_t>(count));
    }
}

int Terminal_session::status_at_end() {
    constexpr int does_not_end = -1000;
    int status = 0;
    if (process_ <= 1 || !until([&] { return waitpid(process_, &status, WNOHANG) == process_; }))
        return does_not_end;
    process_ = -1;
    take_output();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string Terminal_session::row(int row) const {
    std::string text;
    for (int column = 0; column < size_.columns; ++column)
        text += look(row, column).character;
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string Terminal_session::behind(std::string_view label) const {
    for (int i = 0; i < size_.rows; ++i) {
        const std::string text = row(i);
        if (text.rfind(label, 0) == 0)
            return text.substr(std::min(text.size(), text.find_first_not_of(' ', label.size())));
    }
    ADD_FAILURE() << "no row begins with \"" << label << "\":\n" << screen();
    return {};
}

std::string Terminal_session::screen() const {
    std::string text;
    for (int i = 0; i < size_.rows; ++i)
        text += row(i) + '\n';
    return text;
}

Terminal_session::Look Terminal_session::look(int row, int column) const {
    VTermScreenCell cell = emulator_->cell(row, column);
    Look look;
    look.character = cell.chars[0] == 0 ? ' ' : cell.chars[0] < 0x7F ? static_cast<char>(cell.chars[0]) : '?';
    look.bold = cell.attrs.bold;
    look.reverse = cell.attrs.reverse;
    look.coloured = !VTERM_COLOR_IS_DEFAULT_FG(&cell.fg);
    vterm_screen_convert_color_to_rgb(emulator_->screen, &cell.fg);
    look.foreground = static_cast<unsigned>(cell.fg.rgb.red << 16 | cell.fg.rgb.green << 8 | cell.fg.rgb.blue);
    return look;
}

bool Terminal_session::is_on_alternate_screen() const {
    return emulator_->alternate_screen;
}

bool Terminal_session::shows_cursor() const {
    return emulator_->cursor_visible;
}

termios Terminal_session::settings() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(slave_, &settings), 0);
    return settings;
}
