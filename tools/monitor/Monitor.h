#pragma once

#include "Link_input.h"
#include "Link_summary.h"
#include "Link_watcher.h"
#include "Message_lines.h"
#include "Sentence_counts.h"
#include "Sentence_finder.h"
#include "common/Interrupt.h"

#include <glue/data_stream/Data_stream.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

/// Reads a link, prints a line for each message, and accounts for every byte.
class Monitor {
  public:
    struct Options {
        bool labelled = true;               ///< the form of the lines
        bool quiet = false;                 ///< no lines
        std::int64_t duration_ms = 0;       ///< end after this time; 0: never
        std::optional<std::uint64_t> count; ///< end after this many good frames
    };

    enum class End { input, duration, count, interrupt, output_failed };

    /// Prints to `output`. The monitor owns none of its arguments; all of them outlive it.
    Monitor(const Options& options, Link_input& input, const Interrupt& interrupt, std::FILE* output);

    /// Notifies a watcher, too, which may end the run as an interrupt does. It is not owned, and outlives the run.
    void set_watcher(Link_watcher* watcher) { watcher_ = watcher; }

    /// Reads until one of the ends. After `output_failed`, `errno` has the reason.
    End run();

    std::uint64_t good_frames() const { return summary_.good_frames(); }

    /// Prints the summary. It accounts for the bytes that were parsed: bytes still buffered when something other than
    /// the end of the input ended the run are not included. At the end of the input, bytes that are part of no packet
    /// are noise.
    void print_summary(std::FILE* out);

  private:
    bool has_enough() const { return options_.count && summary_.good_frames() >= *options_.count; }
    std::optional<Atime> next_wake_up(std::optional<Atime> deadline) const;
    bool attend_watcher();
    End linger(std::optional<Atime> deadline);
    std::optional<End> take_packets();
    End take_rest();
    void skip_byte();
    void take_packet(int kind, unsigned len);
    void show_frame(unsigned len);
    void show_reply(unsigned len);
    void show_sentence(std::string& sentence);
    void print_line(std::string_view text);
    std::optional<End> flush();
    Vesk_parser::Byte_counts get_byte_counts() const;

    const Options options_;
    Link_input& input_;
    const Interrupt& interrupt_;
    std::FILE* const output_;
    Link_watcher* watcher_ = nullptr;
    Vesk_parser parser_;
    const Message_lines lines_;
    Link_summary summary_;
    Sentence_finder sentence_finder_;
    Sentence_counts sentences_;
    std::optional<Atime> first_arrival_;
    Atime last_wake_up_;
    std::uint64_t skipped_ = 0; // bytes that belonged to no packet when the input ended
    unsigned char packet_[Vesk_parser::largest_packet];
    char line_[32768]; // the longest list: 4095 entries of up to six characters
};
