#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Counts the NMEA sentences of a link.
class Sentence_counts {
  public:
    void count_good(std::string_view kind, std::size_t size);
    /// Counts one whose checksum is wrong or missing.
    void count_bad(std::size_t size);

    /// Prints the counts; nothing when there was no sentence:
    ///
    ///     NMEA sentences: 12 good, 1 bad checksum: GPGGA 10, GPRMC 2
    ///       966 bytes without their line ends, all of them noise in the account above
    void print(std::FILE* out) const;

  private:
    std::vector<std::pair<std::string, std::uint64_t>>
        kinds_; ///< of the good ones, in the order in which they were first received
    std::uint64_t good_ = 0;
    std::uint64_t bad_ = 0;
    std::uint64_t bytes_ = 0;
};
