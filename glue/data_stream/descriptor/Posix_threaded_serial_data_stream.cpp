//             open               end of file
//   closed ----------> open ----------------------> lost --+
//    ^  ^              |  ^                         |  |   | every second: opening fails
//    |  |    close     |  |  opening succeeds       |  |<--+
//    |  +--------------+  +-------------------------+  |
//    |        close, or an opening by the owner that fails
//    +-------------------------------------------------+
//
// At end of file the line is reopened at once when the last attempt was at least a second ago. Without a specification
// string the stream is closed instead of lost.

#include <glue/data_stream/Posix_threaded_serial_data_stream.h>

#include "detail/Lock_unless_held.h"

#include <platform/stzncpy.h>

#include <cstdio>
#include <memory>
#include <mutex>

namespace {

void report_reopening() {
    std::fputs("reopen here!\n", stderr);
}

} // namespace

Posix_threaded_serial_data_stream* Posix_threaded_serial_data_stream::create(const char* spec) {
    auto stream = std::make_unique<Posix_threaded_serial_data_stream>();
    return stream->open(spec) ? stream.release() : nullptr;
}

Posix_threaded_serial_data_stream::Posix_threaded_serial_data_stream()
    : Posix_threaded_data_stream("DSPosTSer"), spec_to_reopen_(""), lost_(false) {}

Posix_threaded_serial_data_stream::~Posix_threaded_serial_data_stream() {
    stop();
}

// ---- Opening and closing ----

bool Posix_threaded_serial_data_stream::open(const char* spec) {
    const std::lock_guard guard(device_lock_);
    stzncpy(spec_to_reopen_, spec, sizeof spec_to_reopen_);
    lost_ = false;
    return open_from_args(spec);
}

/// `open(spec)` and reopening call this with `device_lock_` held; an owner calls it without.
bool Posix_threaded_serial_data_stream::open_default(const char* device) {
    const glue_detail::Lock_unless_held guard(device_lock_);
    close_line(); // opening would also close it, but without the line's lock
    const bool opened = Posix_threaded_data_stream::open(device, false, false, false);
    return init() && opened;
}

bool Posix_threaded_serial_data_stream::close() {
    const std::lock_guard guard(device_lock_);
    lost_ = false;
    const bool closed = close_line();
    wake(); // while the thread waits for the line, the system keeps the device open
    return closed;
}

bool Posix_threaded_serial_data_stream::close_line() {
    const std::lock_guard guard(line_lock);
    const std::lock_guard unused(descriptor_use);
    if (!Posix_data_stream::close())
        return false;
    forget_settings();
    return true;
}

int Posix_threaded_serial_data_stream::get_fd() const {
    const int reading = read_fd;
    return reading >= 0 ? reading : write_fd.load();
}

// ---- The thread ----

void Posix_threaded_serial_data_stream::init(module_man& modules) {
    Event_sender_data_stream::init(modules);
    init();
}

void Posix_threaded_serial_data_stream::resume() {
    init();
    Posix_threaded_data_stream::resume();
}

// ---- Reopening ----

bool Posix_threaded_serial_data_stream::reopen() {
    const std::lock_guard guard(device_lock_);
    if (*spec_to_reopen_ == '\0')
        return false;
    report_reopening();
    return try_to_reopen();
}

void Posix_threaded_serial_data_stream::handle_close() {
    const std::lock_guard guard(device_lock_);
    if (get_fd() < 0) // the owner has closed it already
        return;
    close_line();
    if (*spec_to_reopen_ == '\0')
        return;
    report_reopening();
    const std::int64_t since_last = Atime::now() - last_attempt_;
    if (since_last < reopening_interval_ms) {
        lost_ = true;
        set_timer(static_cast<int>(reopening_interval_ms - since_last));
    } else {
        try_to_reopen();
    }
}

void Posix_threaded_serial_data_stream::handle_timer() {
    const std::lock_guard guard(device_lock_);
    lost_ = lost_ && get_fd() < 0; // the owner may have opened another line
    if (!lost_)
        return;
    reports_failed_opening = false;
    try_to_reopen();
    reports_failed_opening = true;
}

/// Called with `device_lock_` held.
bool Posix_threaded_serial_data_stream::try_to_reopen() {
    last_attempt_ = Atime::now();
    const bool reopened = open_from_args(spec_to_reopen_);
    lost_ = get_fd() < 0;
    if (lost_)
        set_timer(reopening_interval_ms);
    return reopened;
}
