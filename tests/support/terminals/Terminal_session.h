#pragma once

#include <support/checks/waiting.h>

#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

/// A program in its own terminal: the test presses keys and reads the screen, like a user.
///
///     Terminal_session session(monitor, {"--view", device}, {24, 80});
///     EXPECT_TRUE(session.shows("receiving good frames"));
///     session.press("q");
///     EXPECT_EQ(session.status_at_end(), 0);
///
/// A terminal emulator (libvterm) interprets the program's output. Only the operations that wait read the output.
/// Destruction kills the program and all of its session.
class Terminal_session {
  public:
    struct Size {
        int rows, columns;
    };
    /// The appearance of a character.
    struct Look {
        char character = ' ';
        bool bold = false;
        bool reverse = false;
        unsigned foreground = 0; ///< 0xRRGGBB
        bool coloured = false;   ///< whether the foreground is not the default one
    };

    /// \param terminal_type  one that the emulator can replace; not an xterm, whose repeated characters it draws
    ///                       wrongly at the end of a row
    Terminal_session(const std::string& path, const std::vector<std::string>& arguments, Size size,
                     const std::string& terminal_type = "screen-256color");
    ~Terminal_session();
    Terminal_session(const Terminal_session&) = delete;
    Terminal_session& operator=(const Terminal_session&) = delete;

    pid_t process() const { return process_; }

    void press(std::string_view keys);
    /// Changes the size of the window.
    void resize(Size size);
    Size size() const { return size_; }
    void signal(int number);

    /// Reads the program's output until `condition()` holds. \return false when it does not within the limit
    template <typename Condition>
    bool until(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        return eventually(
            [&] {
                take_output();
                return condition();
            },
            limit);
    }
    /// Waits until the text is on the screen.
    bool shows(std::string_view text) {
        return until([&] { return screen().find(text) != std::string::npos; });
    }
    /// Waits until there is no output for a while, so that the screen is not half updated.
    bool settles() {
        constexpr std::chrono::milliseconds quiet(500);
        std::size_t before = output_.size();
        Stopwatch since;
        return until([&] {
            if (output_.size() != before)
                since = Stopwatch();
            before = output_.size();
            return since.elapsed() >= quiet;
        });
    }
    /// Reads the output during this time.
    void watch(std::chrono::milliseconds duration) {
        const Stopwatch stopwatch;
        until([&] { return stopwatch.elapsed() >= duration; }, duration + std::chrono::seconds(1));
    }
    /// Waits for the program's end and reads the rest of its output. \return the exit status; minus the number of the
    /// signal that ended it; -1000 when it does not end
    int status_at_end();

    // ---- The screen, after the output that was read ----

    /// The row's characters without blanks at the end.
    std::string row(int row) const;
    /// The text after `label` at the beginning of a row; the test fails when no row begins with it.
    std::string behind(std::string_view label) const;
    /// All rows, each with a line feed.
    std::string screen() const;
    Look look(int row, int column) const;
    bool is_on_alternate_screen() const;
    bool shows_cursor() const;

    /// All output that was read.
    const std::string& output() const { return output_; }
    /// The terminal's current settings.
    termios settings() const;
    /// Its settings before the program was started.
    const termios& settings_before() const { return settings_before_; }

  private:
    struct Emulator;

    void start(const std::string& path, const std::vector<std::string>& arguments, const std::string& terminal_type);
    void take_output();

    Size size_;
    int master_ = -1;
    int slave_ = -1; // stays open, so that the terminal keeps its settings
    std::string slave_path_;
    termios settings_before_{};
    pid_t process_ = -1;
    std::unique_ptr<Emulator> emulator_;
    std::string output_;
};
