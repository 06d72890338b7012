#pragma once

#include <support/checks/waiting.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

/// A program in a terminal of its own, as its user runs it: the test presses keys and checks the screen.
///
///     Terminal_session session(monitor, {"--view", device}, {24, 80});
///     EXPECT_TRUE(session.shows("receiving good frames"));
///     session.press("q");
///     EXPECT_EQ(session.status_at_end(), 0);
///
/// A terminal emulator that is not ours interprets the program's output. Only the operations that wait read that
/// output, and they may read half of an update. So a test awaits each text that it expects on the screen; once the
/// program has ended, the screen is final. The destructor kills the program and its whole session.
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
        bool coloured = false;   ///< whether the foreground is not the default
    };

    /// \param terminal_type  one that the emulator can imitate; not an xterm, whose repeated characters it draws wrong
    ///                       at the end of a row
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

    // ---- Waiting, with a limit ----

    /// Reads the program's output until `condition()` holds. \return false when the limit ends first
    template <typename Condition>
    bool until(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        return eventually(
            [&] {
                read_output();
                return condition();
            },
            limit);
    }

    /// Waits until the text is on the screen.
    testing::AssertionResult shows(std::string_view text);
    /// Waits until the text is not on the screen.
    testing::AssertionResult hides(std::string_view text);
    /// Waits until a row begins with the text.
    testing::AssertionResult shows_in_row(int row, std::string_view text);
    /// Waits until a row consists of the label, blanks, and a text that begins with `text`.
    testing::AssertionResult shows_after(std::string_view label, std::string_view text);

    /// Waits until the program has been silent for half a second.
    bool settles();
    /// Reads the program's output for that long: to measure it.
    void watch(std::chrono::milliseconds duration);

    /// Waits for the program's end and reads the rest of its output. \return the exit status; minus the signal's number
    /// when a signal ended it; -1000 when it does not end
    int status_at_end();

    // ---- The screen, as far as output was read ----

    /// The row's characters without blanks at the end.
    std::string row(int row) const;
    /// The text after `label` in the first row that begins with it; "" when there is none.
    std::string after(std::string_view label) const;
    /// All rows, each with a line feed.
    std::string screen() const;
    Look look(int row, int column) const;
    bool is_on_alternate_screen() const;
    bool shows_cursor() const;

    /// All output that was read.
    const std::string& output() const { return output_; }
    /// The terminal's current settings.
    termios settings() const;
    /// The settings from before the program was started.
    const termios& settings_before() const { return settings_before_; }

  private:
    struct Emulator;

    void start(const std::string& path, const std::vector<std::string>& arguments, const std::string& terminal_type);
    void read_output();
    template <typename Condition>
    testing::AssertionResult reaches(Condition condition);

    Size size_;
    int master_ = -1;
    int slave_ = -1; // stays open, so that the terminal keeps its settings
    std::string slave_path_;
    termios settings_before_{};
    pid_t process_ = -1;
    std::unique_ptr<Emulator> emulator_;
    std::string output_;
};
