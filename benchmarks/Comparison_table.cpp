#include "Comparison_table.h"

#include <cstdio>
#include <iostream>

namespace {

/// A rate with three digits and its unit: "12.3 MB/s", "456 k/s".
std::string text_of(double rate, bool in_bytes) {
    static const char* const prefixes[] = {"", "k", "M", "G"};
    unsigned thousands = 0;
    for (; rate >= 999.5 && thousands < 3; ++thousands)
        rate /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %s%s/s",
                  rate >= 99.95   ? 0
                  : rate >= 9.995 ? 1
                                  : 2,
                  rate, prefixes[thousands], in_bytes ? "B" : "");
    return text;
}

} // namespace

bool Comparison_table::ReportContext(const Context& context) {
    std::printf("%d processors at %.0f MHz; medians, by the clock on the wall\n", context.cpu_info.num_cpus,
                context.cpu_info.cycles_per_second / 1e6);
#ifndef NDEBUG
    std::puts("NOT an optimised build: these figures say nothing");
#endif
    return true;
}

void Comparison_table::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            std::printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            complete_ = false;
        } else if (run.run_type == Run::RT_Iteration ? run.repetitions == 1 : run.aggregate_name == "median") {
            keep(run);
        }
    }
}

void Comparison_table::keep(const Run& run) {
    const auto bytes = run.counters.find("bytes_per_second");
    const auto items = run.counters.find("items_per_second");
    Figure& figure = figures_[run.run_name.function_name];
    if (bytes != run.counters.end())
        figure = {bytes->second, true};
    else if (items != run.counters.end())
        figure = {items->second, false};
}

void Comparison_table::Finalize() {
    std::printf("\n%-34s %11s %11s %11s %11s\n", "", "ours", "peer", "ours/peer", "limit");
    for (const Comparison& comparison : comparisons()) {
        const auto ours = figures_.find(comparison.name + ours_suffix);
        const auto peer = figures_.find(comparison.name + peer_suffix);
        if (ours != figures_.end() && peer != figures_.end())
            print(comparison, ours->second, peer->second);
    }
    std::fflush(stdout);
}

void Comparison_table::print(const Comparison& comparison, const Figure& ours, const Figure& peer) {
    if (ours.rate <= 0 || peer.rate <= 0 || ours.in_bytes != peer.in_bytes) {
        std::printf("%-34s is not measured\n", comparison.name.c_str());
        complete_ = false;
        return;
    }
    std::printf("%-34s %11s %11s %11.2f %11s  %s\n", comparison.name.c_str(), text_of(ours.rate, ours.in_bytes).c_str(),
                text_of(peer.rate, peer.in_bytes).c_str(), ours.rate / peer.rate,
                text_of(comparison.limit, ours.in_bytes).c_str(), ours.rate >= comparison.limit ? "held" : "BELOW");
    std::printf("    peer: %s\n    limit: %s\n", comparison.peer_name.c_str(), comparison.limit_reason.c_str());
}
