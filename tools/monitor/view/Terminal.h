#pragma once

#include "Grid.h"

#include <memory>
#include <string>

namespace live_view {

/// Has the terminal that standard output is, while it lives, and gives it back as it was: settings, screen, cursor.
///
/// It does so also when the process dies: of a crash, an abort, a hang-up or a quit signal, which then end the process
/// as they would have. SIGINT and SIGTERM are the program's to handle. A stop from the keyboard gives the terminal back
/// until the program is in the foreground again; in the background it goes on without.
///
/// At most one lives at a time, and one thread uses it.
class Terminal {
  public:
    struct Size {
        int rows, columns;
    };

    /// Takes the terminal over. `problem()` says whether that worked; nothing else may be called if not.
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Why the terminal cannot be used; "" when it can.
    const std::string& problem() const { return problem_; }

    /// As it is now.
    Size size() const;
    /// Bytes a second that the line to the terminal carries; 0 when it does not say.
    unsigned bytes_per_second() const;

    /// A key that was pressed; `no_key` when there is none. Does not wait.
    int key();
    static constexpr int no_key = -1;
    /// From `key`: a key, or a part of one, that sends more than a character.
    static constexpr int other_key = -3;
    /// From `key`: Ctrl-L was pressed, the size has changed, or somebody else has had the terminal meanwhile. All of it
    /// is to be shown.
    static constexpr int changed = -2;

    /// Whether the terminal takes what is shown now without a wait: it has taken what came before.
    bool is_ready() const;
    /// Whether there is no terminal any more.
    bool is_gone() const;
    /// Sends what differs from what is on the screen.
    void show(const Grid& grid);

  private:
    struct Curses;

    bool open();
    void stop();
    bool is_ours() const;
    bool has_lost_control() const;
    void let_flow();

    std::string problem_;
    bool under_job_control_ = false;
    bool given_back_ = false; // for a stop, and in the background
    std::unique_ptr<Curses> curses_;
};

} // namespace live_view
