#pragma once

#include <glue/vesk/Vesk_parser.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

/// The account of a link: how many messages of each identifier, and what every byte was part of.
class Link_summary {
  public:
    void count_frame(int identifier);
    void count_reply(int identifier) { count(identifier); }
    void count_checksum_failure() { ++checksum_failures_; }

    /// Frames with a good checksum.
    std::uint64_t good_frames() const { return good_frames_; }
    std::uint64_t checksum_failures() const { return checksum_failures_; }

    /// Prints a line with count and rate for each identifier, in the order in which they were first received, then the
    /// account of the bytes, then the checksum failures.
    /// \param arrived  bytes that were received and parsed
    /// \param bytes    what they were part of
    /// \param seconds  how long bytes were received; without rates when it is 0
    void print(std::FILE* out, std::uint64_t arrived, const Vesk_parser::Byte_counts& bytes, double seconds) const;

  private:
    struct Message_count {
        int identifier;
        std::uint64_t count;
    };

    void count(int identifier);

    std::vector<Message_count> messages_;
    std::uint64_t good_frames_ = 0;
    std::uint64_t checksum_failures_ = 0;
};
