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

constexpr unsigned groups = 98;               // the source has a hundred; the oldest and the newest are not complete
constexpr unsigned settle_every = 128 * 1024; // half of what the source queues while the disk is slow
constexpr auto longest_wait = std::chrono::seconds(2);
constexpr int retry_after_ms = 1000;

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
    // Enabled while no directory is set, the source opens no file. From then on, `configure` leaves it without a file.
    if (!logging_source_is_enabled(source))
        logging_source_enable(source, true);
    logging_source_use_time_of_writing(source, true, span_ms_ / groups + 1);
    configure();
}

Traffic_recorder::~Traffic_recorder() {
    settle();
    logging_source_configure(source, false, 0, 0, options_.directory.c_str(), name, suffix, false);
}

/// Sets the source's directory and history. Leaves it without a file.
void Traffic_recorder::configure() {
    logging_source_configure(source, false, span_ms_, memory_, options_.directory.c_str(), name, suffix, false);
}

std::uint64_t Traffic_recorder::dropped() const {
    return logging_source_get_status(source).dropped - dropped_before_;
}

/// Bytes written to files since the recorder last had none.
std::uint64_t Traffic_recorder::recorded() const {
    const logging_source_status status = logging_source_get_status(source);
    return taken_ - (status.dropped - dropped_at_opening_) - status.queued;
}

bool Traffic_recorder::start() {
    if (options_.later)
        return true;
    switch_on();
    return on_;
}

void Traffic_recorder::switch_on() {
    if (!on_)
        on_ = open_file();
}

void Traffic_recorder::switch_off() {
    close_file();
    on_ = false;
}

bool Traffic_recorder::open_file() {
    const logging_source_status before = logging_source_get_status(source);
    logging_source_enable(source, true);
    if (logging_source_get_status(source).path[0] == '\0')
        return false;
    if (!has_file_) {
        taken_ = 0;
        dropped_at_opening_ = before.dropped;
    }
    has_file_ = true;
    ++files_;
    taken_ += before.history_bytes;
    unsettled_ += before.history_bytes;
    in_file_ = before.history_bytes;
    opened_at_ = Atime::now();
    return true;
}

/// Closes the file when all queued bytes are in it.
void Traffic_recorder::close_file() {
    if (!has_file_)
        return;
    settle();
    in_closed_files_ += recorded();
    configure();
    has_file_ = false;
}

bool Traffic_recorder::rotation_is_due(unsigned count) const {
    if (!has_file_)
        return Atime::now() >= retry_at_;
    const bool is_old =
        options_.rotate_seconds > 0 && static_cast<double>(Atime::now() - opened_at_) >= options_.rotate_seconds * 1000;
    const bool gets_large = options_.rotate_bytes > 0 && in_file_ + count > options_.rotate_bytes;
    return in_file_ > 0 && (is_old || gets_large);
}

/// Continues in another file. The source closes the old one after the bytes that are queued for it. No byte is written
/// to the source in between, so none is dropped, and nothing waits for the disk. The source's own rotation would keep
/// all bytes in memory until then, and drop the bytes received while they are written.
void Traffic_recorder::rotate() {
    if (!options_.keep_all)
        logging_source_delete_old(source); // all except the current one
    if (has_file_)
        configure();
    if (open_file())
        return;
    if (has_file_) { // queued bytes are still written to the old one
        settle();
        in_closed_files_ += recorded();
        has_file_ = false;
    }
    retry_at_ = Atime::now() + retry_after_ms;
}

void Traffic_recorder::take(const unsigned char* bytes, unsigned count, bool can_wait) {
    if (!on_ && span_ms_ == 0)
        return;
    if (on_ && rotation_is_due(count))
        rotate();
    logging_source_write(source, bytes, bytes + count);
    if (!has_file_)
        return;
    taken_ += count;
    in_file_ += count;
    unsettled_ += count;
    if (can_wait && unsettled_ >= settle_every)
        settle();
}

void Traffic_recorder::settle() {
    const auto end = std::chrono::steady_clock::now() + longest_wait;
    while (logging_source_get_status(source).queued > 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    unsettled_ = 0;
}

void Traffic_recorder::print_summary(std::FILE* out) {
    settle();
    const std::uint64_t in_files = in_closed_files_ + (has_file_ ? recorded() : 0);
    std::fprintf(out, "log: %" PRIu64 " bytes in %u file%s, %" PRIu64 " dropped\n", in_files, files_,
                 files_ == 1 ? "" : "s", dropped());
}
