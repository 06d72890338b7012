#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

/// One figure of the library beside the same work done by a peer, and what it has to reach at least.
///
/// Both functions say what they have done with `SetBytesProcessed` or `SetItemsProcessed`, the same one of the two, and
/// use real time. What cannot be measured ends with `SkipWithError`.
struct Comparison {
    using Function = void (*)(benchmark::State&);

    std::string name; ///< of the work, for example "take messages out of a stream"
    Function ours;
    std::string peer_name; ///< how the peer does the same work
    Function peer;
    double limit; ///< bytes or items a second
    std::string limit_reason;
};

/// A developer's machine is taken to be ten times as fast as a display unit, and a unit shall not spend more than a
/// tenth of its time on any of this. So what a unit needs is to be reached here a hundred times over.
constexpr double headroom = 100;
/// Bytes a second of a serial line at 921,600 baud, ten bits to the byte: the fastest a receiver is attached with.
constexpr double serial_line = 92160;

/// Those that are to be measured, in the order of their table.
std::vector<Comparison>& comparisons();

/// Each file of benchmarks adds its own: `static const Benchmarks streams{{...}, {...}};`
struct Benchmarks {
    Benchmarks(std::initializer_list<Comparison> more);
};
