#pragma once

#include <support/streams/Stream_end.h>

#include <functional>
#include <memory>
#include <ostream>
#include <vector>

/// Two connected ends; or one alone, whose peer sends back all that it gets.
struct Channel {
    std::vector<std::shared_ptr<void>> parts; ///< what the streams need, and outlives them
    std::unique_ptr<Stream_end> near_end;
    std::unique_ptr<Stream_end> far_end;

    /// Where what the near end writes arrives.
    Stream_end& other_end() const { return far_end ? *far_end : *near_end; }
};

/// A kind of stream, the near end, and what it is connected with.
struct Channel_kind {
    /// What a signal, or a system call that moves less than it was asked to, does to it.
    enum Stability { stable, loses_when_interrupted };
    /// Whether the near end is one of those that every other kind is joined with.
    enum Role { joined, alone };

    const char* name;
    std::function<Channel()> make;
    Stability stability;
    Role role;
};

/// Every kind that carries bytes both ways, one a line.
const std::vector<Channel_kind>& channel_kinds();
/// Those of them that `wanted` picks.
std::vector<Channel_kind> channel_kinds(const std::function<bool(const Channel_kind&)>& wanted);

inline void PrintTo(const Channel_kind& kind, std::ostream* out) {
    *out << kind.name;
}
