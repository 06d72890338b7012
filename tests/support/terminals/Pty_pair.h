#pragma once

#include <string>
#include <string_view>

/// A pseudo terminal: the test has the far end (`master`), the code under test opens the near one by its path, like
/// a serial device.
///
/// The terminal may become the test's controlling terminal (when the test leads a session). Closing the far
/// end would then end the test with SIGHUP, so this signal is ignored while the object lives.
class Pty_pair {
  public:
    enum Mode { raw, system_settings };

    /// With `raw`, bytes pass unchanged and are not echoed; with `system_settings`, the system's settings stay.
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
    /// Waits for bytes that the near end writes.
    std::string receive(std::size_t count) const;
    /// Closes the far end, like unplugging.
    void hang_up();

    /// Closes the descriptor of the near end.
    void close_slave();
    /// Whether the near end is open nowhere.
    bool near_end_is_gone() const;

  private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
    void (*hang_up_handler_before_)(int);
};
