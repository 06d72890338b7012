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

/// Reads a link, prints a line for each message, and keeps account.
class Monitor {
  public:
    struct Options {
        bool labelled = true;               ///< the form of the lines
        bool quiet = false;                 ///< no lines
        std::int64_t duration_ms = 0;       ///< end after that; 0: never
        std::optional<std::uint64_t> count; ///< end after so many good frames
    };

    enum class End { input, duration, count, interrupt, output_failed };

    /// Prints to `output`; nothing of what is given is owned, and all of it outlives the monitor.
    Monitor(const Options& options, Link_input& input, const Interrupt& interrupt, std::FILE* output);

    /// Shows everything to a watcher too, who may end the run as an interrupt does. It is not owned, and outlives the
    /// run.
    void set_watcher(Link_watcher* watcher) { watcher_ = watcher; }

    /// Reads until one of the ends. After `output_failed`, `errno` says why.
    End run();

    std::uint64_t good_frames() const { return summary_.good_frames(); }

    /// Prints the summary. Its account is of the bytes that were looked at: what was still waiting when something other
    /// than the end of the input ended the run is left out; what is no packet at the end of the input is noise.
    void print_summary(std::FILE* out);

  private:
    bool has_enough() const { return options_.count && summary_.good_frames() >= *options_.count; }
    std::optional<Atime> next_wake_up(std::optional<Atime> deadline) const;
    bool attend_watcher();
    End linger(std::optional<Atime> deadline);
    std::optional<End> take_packets();
    End take_rest();
    void take_packet(int kind, unsigned len);
    void show_frame(unsigned len);
    void show_reply(unsigned len);
    void show_sentence(std::string& sentence);
    void print_line(std::string_view text);
    bool flush();
    Vesk_parser::Byte_counts get_byte_counts();

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
    Atime last_look_;
    bool input_ended_ = false;
    std::uint64_t given_up_ = 0; // bytes that stood in the way of others when the input ended
    unsigned char packet_[Vesk_parser::largest_packet];
    char line_[32768]; // the longest list: 4095 entries of up to six characters
};
