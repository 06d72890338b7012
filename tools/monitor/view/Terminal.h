#pragma once

#include "Grid.h"

#include <memory>
#include <string>

namespace live_view {

/// Draws on the terminal that standard output is. The destructor restores the terminal: settings, screen, cursor.
///
/// A crash, an abort, a hang-up or a quit signal restores it, too, and then ends the process as usual. SIGINT and
/// SIGTERM are the program's to handle. A stop from the keyboard releases the terminal until the program is in the
/// foreground again; in the background the program runs on without it.
///
/// At most one object exists at a time, and one thread uses it.
class Terminal {
  public:
    struct Size {
        int rows, columns;
    };

    /// Acquires the terminal. When that fails, `problem()` says why, and no other operation may be called.
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Why the terminal cannot be used; "" when it can.
    const std::string& problem() const { return problem_; }

    /// The current size.
    Size size() const;
    /// Bytes a second that the line to the terminal carries; 0 when that is unknown.
    unsigned bytes_per_second() const;

    /// The next key that was pressed; `no_key` when there is none. Does not wait.
    int key();
    static constexpr int no_key = -1;
    /// From `key`: a key that sends more than one character, or a part of one.
    static constexpr int other_key = -3;
    /// From `key`: Ctrl-L was pressed, the size changed, or another program used the terminal. The whole screen must be
    /// shown again.
    static constexpr int changed = -2;

    /// Whether `show` would not wait: the terminal has accepted all output so far.
    bool is_ready() const;
    /// Whether the terminal no longer exists.
    bool is_gone() const;
    /// Sends the cells that differ from those on the screen.
    void show(const Grid& grid);

  private:
    struct Curses;

    bool open();
    bool start_curses();
    void configure_curses();
    int key_after_release();
    void stop();
    bool is_ours() const;
    bool has_lost_session() const;
    void disable_flow_control();

    std::string problem_;
    bool under_job_control_ = false;
    bool released_ = false;
    std::unique_ptr<Curses> curses_;
};

} // namespace live_view
