#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

/// The line of a summary that accounts for the bytes.
struct Account {
    std::uint64_t arrived = 0;
    std::uint64_t frames = 0;
    std::uint64_t replies = 0;
    std::uint64_t acknowledgements = 0;
    std::uint64_t noise = 0;
    std::uint64_t separators = 0;

    std::uint64_t sum() const { return frames + replies + acknowledgements + noise + separators; }
};

/// Identifiers with their counts, in the order of the summary.
using Counts = std::vector<std::pair<std::string, std::uint64_t>>;

/// The values of a summary; a failure of the test when the text is not one.
class Summary {
  public:
    explicit Summary(const std::string& text) {
        std::size_t start = 0;
        for (; text.compare(start, 7, "bytes: ") != 0; start = text.find('\n', start) + 1) {
            char id[3] = "";
            unsigned long count = 0;
            if (std::sscanf(text.c_str() + start, "%2c %lu", id, &count) != 2) {
                ADD_FAILURE() << "no account in the summary: " << text;
                return;
            }
            counts.emplace_back(id, count);
        }
        unsigned long n[7] = {};
        int end = 0;
        std::sscanf(text.c_str() + start,
                    "bytes: %lu = frames %lu + replies %lu + acknowledgements %lu + noise %lu + separators %lu\n"
                    "checksum failures: %lu\n%n",
                    &n[0], &n[1], &n[2], &n[3], &n[4], &n[5], &n[6], &end);
        rest = text.substr(start + static_cast<std::size_t>(end));
        EXPECT_TRUE(end > 0 && (rest.empty() || rest.rfind("NMEA", 0) == 0 || rest.rfind("log: ", 0) == 0)) << text;
        account = {n[0], n[1], n[2], n[3], n[4], n[5]};
        checksum_failures = n[6];
    }

    Counts counts;
    Account account;
    std::uint64_t checksum_failures = 0;
    std::string rest; ///< the lines after these: sentences and the log
};
