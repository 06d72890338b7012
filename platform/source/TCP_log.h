#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace platform_detail {

/// What a server logs of its own, under the name of the port it belongs to. From any thread.
class TCP_log {
  public:
    void set(bool on, const char* name);

    void came(int connection, const std::string& peer);
    void left(int connection);
    /// A readable copy of bytes, to the debug printer and to `snoop_logger`: see `log_in_pieces`.
    /// \param direction  "RD" or "WR"
    /// \param connection  whom they came from; -1 when they went to all
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
