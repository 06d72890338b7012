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
/// One recorder at a time exists; between two of them the source stays enabled, without a file. When a rotation cannot
/// open a file, the recorder tries again every second: the record continues when the directory exists again, with the
/// history if one is kept.
class Traffic_recorder {
  public:
    struct Options {
        std::string directory;
        /// Seconds of traffic from before the switch-on with which a file begins, limited by its memory.
        double history = 0;
        bool later = false;             ///< off at first
        double rotate_seconds = 0;      ///< the first bytes after this time begin another file; 0: never
        std::uint64_t rotate_bytes = 0; ///< the largest size of a file; 0: no limit
        bool keep_all = true;           ///< false: a rotation keeps only the previous file
    };

    /// Memory for the history: this much for each of its seconds, within these limits.
    static constexpr unsigned bytes_per_second = 64 * 1024;
    static constexpr unsigned least_memory = 1024 * 1024;
    static constexpr unsigned most_memory = 64 * 1024 * 1024;

    explicit Traffic_recorder(const Options& options);
    /// Writes the queued bytes, for two seconds at most.
    ~Traffic_recorder();
    Traffic_recorder(const Traffic_recorder&) = delete;
    Traffic_recorder& operator=(const Traffic_recorder&) = delete;

    /// Switches on unless the options delay that.
    /// \return false when the file cannot be opened, which the source reports
    bool start();

    /// When the file cannot be opened, the source reports it on standard error, and the recorder stays off.
    void switch_on();
    void switch_off();
    void toggle() { is_on() ? switch_off() : switch_on(); }
    bool is_on() const { return on_; }

    /// Records a piece of traffic.
    /// \param can_wait  back-pressure loses no bytes of the link: wait for a slow disk. Else bytes that a slow disk
    ///                  cannot accept are dropped.
    void take(const unsigned char* bytes, unsigned count, bool can_wait);

    /// Waits until all recorded bytes are in the files, for two seconds at most.
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
    bool has_file_ = false; ///< false while it is on: another attempt is made at `retry_at_`
    Atime retry_at_;
    unsigned files_ = 0;
    std::uint64_t in_closed_files_ = 0;

    // Since the recorder last had no file, over all rotations
    std::uint64_t taken_ = 0;
    std::uint64_t dropped_at_opening_ = 0;
    unsigned unsettled_ = 0;

    // The open file's
    std::uint64_t in_file_ = 0;
    Atime opened_at_;
};
