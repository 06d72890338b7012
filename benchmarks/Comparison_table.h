#pragma once

#include "Comparison.h"

#include <map>

/// Collects Google Benchmark's results, and prints them as one table: ours, the peer's, the ratio of the two,
/// and the limit.
class Comparison_table : public benchmark::BenchmarkReporter {
  public:
    static constexpr const char* ours_suffix = " [ours]";
    static constexpr const char* peer_suffix = " [peer]";

    bool ReportContext(const Context& context) override;
    /// Keeps the median of several runs, or the only one.
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    /// Whether every comparison that ran has its figure.
    bool complete() const { return complete_; }

  private:
    struct Figure {
        double rate = 0; ///< a second
        bool in_bytes = false;
    };

    void keep(const Run& run);
    void print(const Comparison& comparison, const Figure& ours, const Figure& peer);

    std::map<std::string, Figure> figures_;
    bool complete_ = true;
};
