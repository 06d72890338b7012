// Measures the library beside its peers: glue_bench [Google Benchmark's options], for example
// --benchmark_filter=settings
#include "Comparison_table.h"

#include <platform/Debug.h>

int main(int argc, char** argv) {
    // Interleaved, so that other load affects ours and the peer's alike. The user's options follow and override these.
    std::vector<std::string> words = {argv[0], "--benchmark_repetitions=5", "--benchmark_min_time=0.1",
                                      "--benchmark_enable_random_interleaving=true"};
    words.insert(words.end(), argv + 1, argv + argc);
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;

    for (const Comparison& comparison : comparisons()) {
        benchmark::RegisterBenchmark((comparison.name + Comparison_table::ours_suffix).c_str(), comparison.ours)
            ->UseRealTime();
        benchmark::RegisterBenchmark((comparison.name + Comparison_table::peer_suffix).c_str(), comparison.peer)
            ->UseRealTime();
    }
    Comparison_table table;
    const std::size_t measured = benchmark::RunSpecifiedBenchmarks(&table);
    return measured > 0 && table.complete() ? 0 : 1;
}
