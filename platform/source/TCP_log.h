#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace platform_detail {

/// A server's own log, under the name of its port. From any thread.
class TCP_log {
  public:
    void set(bool on, const char* name);

    void connected(int connection, const std::string& peer);
    void disconnected(int connection);
    /// A readable copy of bytes, to the debug printer and to `snoop_logger`: see `log_in_pieces`.
    /// \param direction  "RD" or "WR"
    /// \param connection  the client that sent the bytes; -1 when they were sent to all
    void traffic(const char* direction, int connection, const unsigned char* data, unsigned len);

  private:
    static constexpr unsigned name_size = 100;

    void copy_name(char* destination);
    void event(int connection, const char* text);

    std::atomic<bool> on_{false};
    std::mutex mutex_;
    char name_[name_size] = "";
};

} // namespace platform_detail
