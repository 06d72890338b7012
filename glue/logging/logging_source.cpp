#include <glue/logging/logging_source.h>

#include "detail/assertion.h"
#include "logging/Log_source.h"

#include <platform/Atime.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// How long a process that exits waits for one writer
constexpr int waits_at_exit = 100;
constexpr int wait_at_exit_ms = 10;

struct Sources {
    Log_source all[logging_source_count]{Log_source("LOG0"), Log_source("LOG1"), Log_source("LOG2")};
};

void end_writers();

/// Never destroyed: a thread that logs while the process exits still uses it, and so does a writer that a disk blocks.
Sources& sources() {
    static Sources* const table = [] {
        std::atexit(end_writers);
        return new Sources;
    }();
    return *table;
}

Log_source& at(logging_source_t source) {
    GLUE_ASSERT(source >= 0 && source < logging_source_count);
    return sources().all[source];
}

/// Gives each writer a limited time to write what is queued.
void end_writers() {
    for (Log_source& source : sources().all) {
        for (int i = 0; i < waits_at_exit && !source.end_writer(); ++i)
            Atime::delay(wait_at_exit_ms);
        source.join_ended_writer();
    }
}

/// The characters of a directory, name or suffix that are used.
std::string field(const char* text) {
    return text ? std::string(text, strnlen(text, logging_source_longest_field)) : std::string();
}

} // namespace

void logging_source_configure(logging_source_t source, bool direct, unsigned span, unsigned history_size,
                              const char* directory, const char* name, const char* suffix, bool open_now) {
    at(source).configure(direct, span, history_size, {field(directory), field(name), field(suffix)}, open_now);
}

void logging_source_enable(logging_source_t source, bool on) {
    at(source).enable(on);
}

bool logging_source_is_enabled(logging_source_t source) {
    return at(source).is_enabled();
}

bool logging_source_is_busy(logging_source_t source) {
    return at(source).is_busy();
}

bool logging_source_write(logging_source_t source, const unsigned char* begin, const unsigned char* end) {
    return at(source).write(begin, static_cast<unsigned>(end - begin));
}

bool logging_source_write(logging_source_t source, const char* text) {
    const char* const characters = text ? text : "";
    const auto* const begin = reinterpret_cast<const unsigned char*>(characters);
    return logging_source_write(source, begin, begin + std::strlen(characters));
}

void logging_source_flush(logging_source_t source, bool rotate) {
    at(source).flush(rotate);
}

void logging_source_delete_old(logging_source_t source) {
    at(source).delete_files(false);
}

void logging_source_delete_all(logging_source_t source) {
    at(source).delete_files(true);
}

void logging_source_testing_override_timed_bucket_ms(unsigned ms) {
    Log_source::set_period(ms);
}

void logging_source_use_time_of_writing(logging_source_t source, bool on, unsigned group_ms) {
    at(source).use_time_of_writing(on, group_ms);
}

logging_source_status logging_source_get_status(logging_source_t source) {
    return at(source).status();
}
