#pragma once

#include <platform/Atime.h>

#include <cstdint>
#include <cstdio>
#include <string>

/// Records a link's raw traffic through `logging_source_receiver`, into files "DIRECTORY/receiver_raw_<time>.log".
///
///     off  --- switch on: a new file, which begins with the history --->  on  ---+
///      ^                                                                  |  ^    | rotation: the file is closed, and
///      +----- switch off: the file is closed, history is kept again ------+  +----+ the next byte begins another
///
/// One at a time; between them the source stays enabled, without a file. A file that a rotation cannot open is tried
/// again every second: the record goes on when the directory is there again, with the history if one is kept.
class Traffic_recorder {
  public:
    struct Options {
        std::string directory;
        /// Seconds that a file begins before it is switched on, as far as the memory for it reaches.
        double history = 0;
        bool later = false;             ///< off at first
        double rotate_seconds = 0;      ///< a file is ended by the first bytes after so many; 0: never
        std::uint64_t rotate_bytes = 0; ///< a file is ended before it gets larger than this; 0: never
        bool keep_all = true; ///< false: when a rotation begins a file, only the one before it stays beside it
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
    ///                  what it cannot take is dropped.
    void take(const unsigned char* bytes, unsigned count, bool can_wait);

    /// Waits until what was taken is in the files, for two seconds at most.
    void settle();

    /// Prints "log: 54530 bytes in 2 files, 0 dropped".
    void print_summary(std::FILE* out);

  private:
    void configure();
    bool open_file();
    void close_file();
    bool rotation_is_due(unsigned count) const;
    void rotate();
    std::uint64_t dropped() const;
    std::uint64_t recorded() const;

    const Options options_;
    const unsigned span_ms_;
    const unsigned memory_;
    const std::uint64_t dropped_before_;
    bool on_ = false;
    bool has_file_ = false; ///< else, if it is on, one is tried again at
    Atime retry_at_;
    unsigned files_ = 0;
    std::uint64_t in_closed_files_ = 0;

    // Since there was no file, over all rotations
    std::uint64_t taken_ = 0;
    std::uint64_t dropped_at_opening_ = 0;
    unsigned unsettled_ = 0;

    // Of the open file
    std::uint64_t in_file_ = 0;
    Atime opened_at_;
};
