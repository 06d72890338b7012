#pragma once

#include <support/checks/waiting.h>

#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

/// A program in a terminal of its own, as its user has it: the test presses keys and looks at the screen.
///
///     Terminal_session session(monitor, {"--view", device}, {24, 80});
///     EXPECT_TRUE(session.shows("receiving good frames"));
///     session.press("q");
///     EXPECT_EQ(session.status_at_end(), 0);
///
/// What the program writes goes through a terminal emulator that is not ours. It is taken by those operations only that
/// wait for something. The program and all of its session are killed with the object.
class Terminal_session {
  public:
    struct Size {
        int rows, columns;
    };
    /// How a character looks.
    struct Look {
        char character = ' ';
        bool bold = false;
        bool reverse = false;
        unsigned foreground = 0; ///< 0xRRGGBB
        bool coloured = false;   ///< whether the foreground is another than usual
    };

    /// \param terminal_type  one that the emulator can stand for; not an xterm, whose repeating of characters it gets
    ///                       wrong at the end of a row
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

    /// Takes what the program writes until `condition()` holds. \return false when it does not within the limit
    template <typename Condition>
    bool until(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        return eventually(
            [&] {
                take_output();
                return condition();
            },
            limit);
    }
    /// Whether the text comes to be on the screen.
    bool shows(std::string_view text) {
        return until([&] { return screen().find(text) != std::string::npos; });
    }
    /// Waits until nothing has come for a while: what is on the screen is no half of an update.
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
    /// Takes what comes for so long.
    void watch(std::chrono::milliseconds duration) {
        const Stopwatch stopwatch;
        until([&] { return stopwatch.elapsed() >= duration; }, duration + std::chrono::seconds(1));
    }
    /// Waits for the program's end and takes the rest of its output. \return the exit status; minus the signal's number
    /// when one ended it; -1000 when it does not end
    int status_at_end();

    // ---- The screen as it is, after what was taken ----

    /// The row's characters without blanks at the end.
    std::string row(int row) const;
    /// What stands behind `label` at the beginning of a row; a failure of the test when none begins with it.
    std::string behind(std::string_view label) const;
    /// All rows, each with a line feed.
    std::string screen() const;
    Look look(int row, int column) const;
    bool is_on_alternate_screen() const;
    bool shows_cursor() const;

    /// All that the program has written, as far as it was taken.
    const std::string& output() const { return output_; }
    /// The terminal's settings as they are now.
    termios settings() const;
    /// The same before the program was started.
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
