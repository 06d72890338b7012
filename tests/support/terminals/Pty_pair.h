#pragma once

#include <string>
#include <string_view>

/// A pseudo terminal: the test holds the far end (`master`), the code under test opens the near one by its path, as it
/// would open a serial device.
///
/// When the near end becomes the test's controlling terminal (the test leads its session and has none yet), closing the
/// far end would kill the test with SIGHUP. So that signal is ignored while the object exists.
class Pty_pair {
  public:
    enum Mode { raw, as_it_comes };

    /// With `raw` bytes pass unchanged and are not echoed, from the start.
    explicit Pty_pair(Mode mode = raw);
    ~Pty_pair();
    Pty_pair(const Pty_pair&) = delete;
    Pty_pair& operator=(const Pty_pair&) = delete;

    /// The path of the near end.
    const std::string& path() const { return path_; }
    int master() const { return master_; }
    /// A descriptor of the near end that stays open, so that the terminal keeps its settings between openings.
    int slave() const { return slave_; }

    /// Sends bytes to the near end.
    void send(std::string_view bytes) const;
    /// Waits for bytes that the near end wrote.
    std::string receive(std::size_t count) const;
    /// Closes the far end, as a pulled plug does.
    void hang_up();

    /// Closes the descriptor of the near end.
    void close_slave();
    /// Whether the near end is not open anywhere.
    bool near_end_is_gone() const;

  private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
    void (*hang_up_handler_before_)(int);
};
