#pragma once

#include "summary_text.h"

#include <monitor/Monitor.h>
#include <monitor/Receiver_input.h>

#include <support/fakes/Standard_input.h>
#include <support/files/Text_file.h>

#include <cstdint>
#include <string>
#include <string_view>

/// A monitor's results for a link.
struct Monitored {
    Monitor::End end;
    std::string output;
    std::string summary;
    std::uint64_t good_frames;

    Counts counts() const { return Summary(summary).counts; }
    Account account() const { return Summary(summary).account; }
    std::uint64_t checksum_failures() const { return Summary(summary).checksum_failures; }
};

/// Runs a monitor on the current standard input.
inline Monitored monitored_standard_input(const Monitor::Options& options = {}) {
    Receiver_input input;
    const Interrupt interrupt;
    Text_file output;
    Text_file summary;
    Monitor monitor(options, input, interrupt, output.get());
    const Monitor::End end = monitor.run();
    monitor.print_summary(summary.get());
    return {end, output.text(), summary.text(), monitor.good_frames()};
}

/// Runs a monitor on a link with these bytes, which then ends.
inline Monitored monitored(std::string_view bytes, const Monitor::Options& options = {}) {
    const Standard_input standard(bytes);
    return monitored_standard_input(options);
}

/// Runs a monitor on a descriptor.
inline Monitored monitored_descriptor(int fd, const Monitor::Options& options = {}) {
    const Standard_input standard(fd);
    return monitored_standard_input(options);
}
