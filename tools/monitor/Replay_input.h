#pragma once

#include "Link_input.h"
#include "Replay_pace.h"

#include <glue/data_stream/Data_stream.h>

#include <string>
#include <vector>

/// Plays a record of a link's traffic back: every byte, at the pace of the recorded epochs.
///
/// An epoch begins with a receiver time message. When it is due, all bytes up to the next one are delivered at once.
/// The bytes before the first one are delivered at once, too.
class Replay_input : public Data_stream, public Link_input {
  public:
    /// \param speed  how many times as fast as it was recorded; 0: as fast as it is consumed
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
    /// A record accepts no bytes. \return -1
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool release();
    bool is_starved() const;
    bool is_readable() const;
    void refill();
    std::optional<std::uint32_t> time_at(std::size_t index) const;
    std::size_t next_time(std::size_t from) const;
    Arrival deliver();

    int fd_ = -1;
    bool ended_ = false;                 ///< the file was read to its end
    std::vector<unsigned char> pending_; ///< read and not delivered yet
    std::size_t first_ = 0;              ///< index of the first pending byte
    std::size_t released_ = 0;           ///< how many pending bytes may be delivered now
    std::optional<Atime> due_;           ///< when the epoch at the first pending byte may be delivered
    Replay_pace pace_;
};
