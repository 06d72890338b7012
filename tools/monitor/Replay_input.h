#pragma once

#include "Link_input.h"
#include "Replay_pace.h"

#include <glue/data_stream/Data_stream.h>

#include <string>
#include <vector>

/// A record of a link's traffic as the monitor's link: byte for byte what came, at the pace of its epochs.
///
/// An epoch begins with a receiver time message, which is waited for, and all behind it up to the next one comes at
/// once. So does what stands before the first.
class Replay_input : public Data_stream, public Link_input {
  public:
    /// \param speed  how many times as fast as it came; 0: as fast as it is taken
    explicit Replay_input(double speed) : pace_(speed) {}
    ~Replay_input() override;

    /// A FIFO opens at once; it may have no writer yet.
    /// \return false, after a line on standard error, when the file cannot be opened
    bool open(const std::string& path);

    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) override;
    Data_stream& buffered_bytes() override { return *this; }
    bool can_wait() const override { return true; }

    using Data_stream::get_data;
    /// \return whether `n` is 0
    int get_data(int n) override;
    /// There is nobody to write to. \return -1
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool release();
    bool is_starved() const;
    bool is_readable() const;
    void refill();
    std::optional<std::uint32_t> time_at(std::size_t place) const;
    std::size_t next_time(std::size_t from) const;
    Arrival hand_over();

    int fd_ = -1;
    bool ended_ = false;                 ///< the file
    std::vector<unsigned char> pending_; ///< read and not handed over yet
    std::size_t first_ = 0;              ///< of the pending bytes
    std::size_t released_ = 0;           ///< bytes that may go
    std::optional<Atime> due_;           ///< of the epoch that the pending bytes begin with, while that is waited for
    Replay_pace pace_;
};
