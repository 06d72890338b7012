#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

/// Records a link's raw traffic through `logging_source_receiver`, into files "DIRECTORY/receiver_raw_<time>.log".
///
///     off  --- switch on: a new file, which begins with the history --->  on
///      ^                                                                  |
///      +----- switch off: the file is closed, history is kept again ------+
///
/// One at a time; between them the source stays enabled, without a file.
class Traffic_recorder {
  public:
    struct Options {
        std::string directory;
        double history =
            0; ///< seconds that a file begins before it is switched on, as far as the memory for it reaches
        bool later = false; ///< off at first
    };

    /// Memory for the history: so much for each of its seconds, but within these limits.
    static constexpr unsigned bytes_per_second = 64 * 1024;
    static constexpr unsigned least_memory = 1024 * 1024;
    static constexpr unsigned most_memory = 64 * 1024 * 1024;

    explicit Traffic_recorder(const Options& options);
    /// Writes what is still queued, for two seconds at most.
    ~Traffic_recorder();
    Traffic_recorder(const Traffic_recorder&) = delete;
    Traffic_recorder& operator=(const Traffic_recorder&) = delete;

    /// Begins as the options say. \return false when the file cannot be opened, of which the source has told
    bool start();

    /// A file that cannot be opened is told of on standard error; the recorder is then still off.
    void switch_on();
    void switch_off();
    void toggle() { is_on() ? switch_off() : switch_on(); }
    bool is_on() const { return on_; }

    /// Takes a piece of traffic.
    /// \param can_wait  the link loses nothing when it is held up: the disk is then waited for when it is slow. Else
    /// what
    ///                  it cannot take is dropped.
    void take(const unsigned char* bytes, unsigned count, bool can_wait);

    /// Waits until what was taken is in the file, for two seconds at most.
    void settle();

    /// Prints "log: 54530 bytes in 2 files, 0 dropped".
    void print_summary(std::FILE* out);

  private:
    void configure();
    std::uint64_t dropped() const;

    const Options options_;
    const unsigned span_ms_;
    const unsigned memory_;
    const std::uint64_t dropped_before_;
    bool on_ = false;
    unsigned files_ = 0;
    std::uint64_t in_closed_files_ = 0;

    // Of the open file
    std::uint64_t taken_ = 0;
    std::uint64_t dropped_at_opening_ = 0;
    unsigned unsettled_ = 0;
};
