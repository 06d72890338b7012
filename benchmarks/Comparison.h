#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

/// One figure of the library beside the same work done by a peer, and the least that it has to reach.
///
/// Both functions report their work with `SetBytesProcessed` or `SetItemsProcessed`, the same one of the two, and
/// use real time. A work that cannot be measured ends with `SkipWithError`.
struct Comparison {
    using Function = void (*)(benchmark::State&);

    std::string name; ///< of the work, for example "take messages out of a stream"
    Function ours;
    std::string peer_name; ///< how the peer does the same work
    Function peer;
    double limit; ///< bytes or items a second
    std::string limit_reason;
};

/// The assumption: a developer's machine is ten times as fast as a display unit, and a unit spends at most a
/// tenth of its time on any of this. So the limit here is a hundred times what a unit needs.
constexpr double headroom = 100;
/// Bytes a second of a serial line at 921,600 baud, ten bits to the byte: the fastest line of a receiver.
constexpr double serial_line = 92160;

/// All comparisons, in the order of the table.
std::vector<Comparison>& comparisons();

/// Each file of benchmarks adds its own: `static const Benchmarks streams{{...}, {...}};`
struct Benchmarks {
    Benchmarks(std::initializer_list<Comparison> more);
};
