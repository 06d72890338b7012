#pragma once

#include "Relay_direction.h"
#include "Relay_side.h"

#include <platform/waiter.h>

#include <cstdint>
#include <memory>
#include <string>

/// Joins two streams, each made from a specification, both ways or one.
class Relay {
  public:
    struct Options {
        std::string specifications[2];
        bool one_way = false;   ///< from the first to the second only
        bool log = false;       ///< trace the traffic of both
        bool reconnect = false; ///< start a child process anew when it has ended
    };
    struct Moved {
        std::uint64_t forward = 0;  ///< bytes from the first stream to the second
        std::uint64_t backward = 0; ///< from the second to the first
    };

    explicit Relay(const Options& options);
    ~Relay();

    /// Makes both streams. \return false, after a line on standard error, when one cannot be made
    bool open();

    /// Moves bytes for a while. \return false when a side has ended and all that it said was passed on
    bool work(int ms);

    Moved moved() const;

  private:
    void join();
    void part();
    bool open_side(int side);
    bool move();
    bool has_waiting() const;
    void pass_on_last_words();
    bool start_again();
    bool side_has_ended() const;

    const Options options_;
    waiter_descriptor waiter_;
    std::unique_ptr<Relay_side> sides_[2];
    std::unique_ptr<Relay_direction> forward_;
    std::unique_ptr<Relay_direction> backward_;
    Moved moved_before_; ///< by directions that are gone
};
