#pragma once

#include <support/streams/Stream_end.h>

#include <functional>
#include <memory>
#include <ostream>
#include <vector>

/// Two connected ends; or one end whose peer sends back all that it receives.
struct Channel {
    std::vector<std::shared_ptr<void>> parts; ///< what the streams use; destroyed after them
    std::unique_ptr<Stream_end> near_end;
    std::unique_ptr<Stream_end> far_end;

    /// The end that receives what the near end writes.
    Stream_end& other_end() const { return far_end ? *far_end : *near_end; }
};

/// A kind of channel: the kind of stream at its near end, and the peer.
struct Channel_kind {
    /// The effect of a signal, or of a system call that transfers fewer bytes than requested.
    enum Stability { stable, loses_when_interrupted };
    /// Whether the near end is combined with that of every other kind.
    enum Role { joined, alone };

    const char* name;
    std::function<Channel()> make;
    Stability stability;
    Role role;
};

/// Every kind that transfers bytes in both directions.
const std::vector<Channel_kind>& channel_kinds();
/// The kinds for which `wanted` returns true.
std::vector<Channel_kind> channel_kinds(const std::function<bool(const Channel_kind&)>& wanted);

inline void PrintTo(const Channel_kind& kind, std::ostream* out) {
    *out << kind.name;
}
