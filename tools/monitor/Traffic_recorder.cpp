#include "Traffic_recorder.h"

#include <glue/logging/logging_source.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <thread>

namespace {

constexpr logging_source_t source = logging_source_receiver;
constexpr const char* name = "receiver";
constexpr const char* suffix = "raw";

constexpr unsigned groups = 98; // of the hundred that the source has: the oldest and the newest are not whole
constexpr unsigned settle_every = 128 * 1024; // half of what the source queues for a slow disk
constexpr auto longest_wait = std::chrono::seconds(2);

unsigned memory_for(double seconds) {
    if (seconds <= 0)
        return 0;
    return static_cast<unsigned>(std::clamp<double>(seconds * Traffic_recorder::bytes_per_second,
                                                    Traffic_recorder::least_memory, Traffic_recorder::most_memory));
}

} // namespace

Traffic_recorder::Traffic_recorder(const Options& options)
    : options_(options),
      span_ms_(static_cast<unsigned>(std::ceil(options.history * 1000))),
      memory_(memory_for(options.history)),
      dropped_before_(logging_source_get_status(source).dropped) {
    // Enabled before the directory is known there is nothing to open: from then on the source is without a file
    // whenever it has just been configured.
    if (!logging_source_is_enabled(source))
        logging_source_enable(source, true);
    logging_source_use_time_of_writing(source, true, span_ms_ / groups + 1);
    configure();
}

Traffic_recorder::~Traffic_recorder() {
    settle();
    logging_source_configure(source, false, 0, 0, options_.directory.c_str(), name, suffix, false);
}

/// Leaves the source without a file.
void Traffic_recorder::configure() {
    logging_source_configure(source, false, span_ms_, memory_, options_.directory.c_str(), name, suffix, false);
}

std::uint64_t Traffic_recorder::dropped() const {
    return logging_source_get_status(source).dropped - dropped_before_;
}

bool Traffic_recorder::start() {
    if (options_.later)
        return true;
    switch_on();
    return on_;
}

void Traffic_recorder::switch_on() {
    if (on_)
        return;
    const logging_source_status before = logging_source_get_status(source);
    logging_source_enable(source, true);
    on_ = logging_source_get_status(source).path[0] != '\0';
    if (!on_)
        return;
    ++files_;
    taken_ = before.history_bytes;
    dropped_at_opening_ = before.dropped;
    unsettled_ = before.history_bytes;
}

void Traffic_recorder::switch_off() {
    if (!on_)
        return;
    settle();
    in_closed_files_ += logging_source_get_status(source).file_bytes;
    configure();
    on_ = false;
}

void Traffic_recorder::take(const unsigned char* bytes, unsigned count, bool can_wait) {
    if (!on_ && span_ms_ == 0)
        return;
    logging_source_write(source, bytes, bytes + count);
    if (!on_)
        return;
    taken_ += count;
    unsettled_ += count;
    if (can_wait && unsettled_ >= settle_every)
        settle();
}

void Traffic_recorder::settle() {
    const auto end = std::chrono::steady_clock::now() + longest_wait;
    const auto all_written = [this] {
        const logging_source_status status = logging_source_get_status(source);
        return status.file_bytes + (status.dropped - dropped_at_opening_) >= taken_;
    };
    while (on_ && !all_written() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    unsettled_ = 0;
}

void Traffic_recorder::print_summary(std::FILE* out) {
    settle();
    const std::uint64_t in_open_file = on_ ? logging_source_get_status(source).file_bytes : 0;
    std::fprintf(out, "log: %" PRIu64 " bytes in %u file%s, %" PRIu64 " dropped\n", in_closed_files_ + in_open_file,
                 files_, files_ == 1 ? "" : "s", dropped());
}
