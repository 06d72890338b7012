#pragma once

#include "Relay_direction.h"
#include "Relay_side.h"

#include <platform/waiter.h>

#include <cstdint>
#include <memory>
#include <string>

/// Connects two streams, each made from a specification string: the bytes that one receives are written to the other,
/// in both directions or in one.
///
///     Relay relay(options);
///     if (!relay.open())
///         return 1;                                   // an error was printed
///     while (!interrupt.is_requested() && relay.work(100)) {
///     }
///
/// **Threads.** One thread uses a relay; the streams have their own.
class Relay {
  public:
    struct Options {
        std::string specifications[2];
        bool one_way = false;   ///< only from the first to the second
        bool log = false;       ///< trace the traffic of both
        bool reconnect = false; ///< start a child process again when it has ended
    };
    struct Moved {
        std::uint64_t forward = 0;  ///< bytes from the first stream to the second
        std::uint64_t backward = 0; ///< bytes from the second to the first
    };

    explicit Relay(const Options& options);
    ~Relay();

    /// Makes both streams. \return false, after a line on standard error, when one cannot be made
    bool open();

    /// Moves bytes for `ms` milliseconds. \return false when a side has ended and its last bytes were delivered
    bool work(int ms);

    Moved moved() const;

  private:
    bool open_side(int side);
    void connect();
    void disconnect();
    bool move();
    void wait_for_event(Atime deadline);
    bool has_buffered() const;
    bool finish();
    void deliver_last_bytes();
    bool side_has_ended() const;

    const Options options_;
    waiter_descriptor waiter_;
    std::unique_ptr<Relay_side> sides_[2];
    std::unique_ptr<Relay_direction> forward_;
    std::unique_ptr<Relay_direction> backward_;
    Moved moved_before_; ///< by directions that were disconnected
};
