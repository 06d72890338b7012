#pragma once

#include <glue/export.h>

#include <cstdint>

/// Traffic logs: each of three sources records a stream of bytes in files of its own.
///
/// While no file is open, an enabled source keeps the most recent part of its traffic in memory, its history. So a log
/// that is started later begins with the traffic just before. While a file is open, the bytes go there. Each source has
/// a thread that does all writing: a thread that logs does not wait for it.
///
///     logging_source_enable(logging_source_receiver, true);       // not configured, so no file: keeps history only
///     logging_source_configure(logging_source_receiver, false, 10000, 1 << 20,
///                              "/data/logs", "receiver", "raw", false);
///     logging_source_write(logging_source_receiver, begin, end);  // for every piece of traffic
///     ...
///     logging_source_enable(logging_source_receiver, true);       // opens a file: the history, then new traffic
///     ...
///     logging_source_flush(logging_source_receiver, false);       // now everything is in the file
///
/// **Content of a file.** A file that `logging_source_enable` opened has the history, then every byte logged after
/// that, in order, none twice, and none missing except the dropped ones. A rotation (`logging_source_flush` with
/// `rotate`) makes a file that has the history alone. After it the source has no file, and keeps history for the next
/// rotation. If a source is rotated at least once in the time that its history reaches back, all of its traffic is in
/// files, except what is logged while a rotation is being written: that is dropped. A direct source has no history:
/// after a rotation it also drops everything until it is switched on again.
///
/// **Dropped bytes** are counted, see `logging_source_get_status`: bytes logged while a rotation is being written; a
/// piece as large as the history or larger, without a file; a piece that does not fit the queue of a file (256 KiB more
/// than the history) because the disk is too slow; bytes that a full or broken disk refuses. Bytes that have become too
/// old for the history are not counted.
///
/// **Lost bytes.** When the process is killed, the history is lost, and the bytes that are queued for the disk. After a
/// power cut, so is everything that the system has not written yet: only a finished rotation has its file on the
/// medium. When the process exits, each source has up to a second to write what is queued. A complete file is never
/// changed.
///
/// **Threads.** Every operation may be called from any thread. A disk that hangs in a write blocks a thread that
/// flushes; during a rotation also threads that enable, configure or rotate. A disk that hangs while a file is opened
/// (enable, configure, rotation) or while files are deleted blocks all operations on that source, except the two that
/// read its flags.
enum logging_source_t {
    logging_source_receiver = 0,    ///< the traffic of a receiver
    logging_source_corrections = 1, ///< the correction data that it is sent
    logging_source_port = 2         ///< any other port
};
constexpr int logging_source_count = 3;

/// The characters of a directory, a name or a suffix that are used; a longer text is cut.
constexpr unsigned logging_source_longest_field = 256;

/// Sets where the files of a source are, and how much history it keeps. Afterwards the source has no open file, unless
/// it is `direct` and `open_now`.
///
/// Waits while a rotation is being written. The history is kept if `history_size` is the same as before and `span` is,
/// as before, 0 or not 0; a direct source then writes it to the beginning of the file that it opens.
/// \param direct        keep no history: everything goes to the file
/// \param span          milliseconds that the history reaches back; 0: no history
/// \param history_size  bytes of memory for the history
/// \param directory     the folder of the files, cut at 256 characters. An empty text is the root of the file system:
///                      files are "/name_suffix_...". Null is an empty text, also for the next two.
/// \param name, suffix  cut alike; files are "directory/name_suffix_20250512_063000.log" with the time in UTC, or
///                      "-unknown-" when no calendar has it; if that exists, "..._000000.log" and so on
/// \param open_now      for a direct source: open a file at once
GLUE_EXPORT void logging_source_configure(logging_source_t source, bool direct, unsigned span, unsigned history_size,
                                          const char* directory, const char* name, const char* suffix, bool open_now);

/// Switches a source on or off. Switching on opens a new file when none is open and the source is configured. A file
/// that cannot be opened is reported once on standard error, and the source continues without it; so is a thread that
/// cannot be started. Both are tried again the next time. Switching off leaves the file open. Waits while a rotation is
/// being written.
GLUE_EXPORT void logging_source_enable(logging_source_t source, bool on);

GLUE_EXPORT bool logging_source_is_enabled(logging_source_t source);
/// Whether a rotation is being written.
GLUE_EXPORT bool logging_source_is_busy(logging_source_t source);

/// Logs the bytes from `begin` up to `end`. Does not wait until they are written.
/// \return false when the source is not enabled
GLUE_EXPORT bool logging_source_write(logging_source_t source, const unsigned char* begin, const unsigned char* end);
/// The same for a text, up to its NUL. Null is an empty text.
GLUE_EXPORT bool logging_source_write(logging_source_t source, const char* text);

/// Waits until everything logged so far is in the open file. With `rotate` the history then goes to a new file, which
/// is written in the background and brought to the medium. Does nothing when the source is not enabled or a rotation is
/// being written. Returns when the rotation has begun. Two threads that rotate take turns.
GLUE_EXPORT void logging_source_flush(logging_source_t source, bool rotate);

/// Deletes the log files of a source, except the one opened last. On purpose these are all files whose names begin as
/// theirs do, up to the time: in the same directory also the files of a source whose suffix is this one, a "_" and
/// more.
GLUE_EXPORT void logging_source_delete_old(logging_source_t source);
/// Deletes all log files of a source.
GLUE_EXPORT void logging_source_delete_all(logging_source_t source);

/// Sets the period by which all sources group their history, 1000 ms unless set; 0 is ignored.
///
/// On purpose the age of a group is not its time, but the period times the remainder of the time divided by the period.
/// So what the history keeps depends on how long the unit has been running. `logging_source_use_time_of_writing`
/// changes that.
GLUE_EXPORT void logging_source_testing_override_timed_bucket_ms(unsigned ms);

// ---- Additions of ours ----

/// Makes a source's history age by the time of writing instead of by the key above. It then reaches back as far as
/// `span`, and up to `group_ms` more. Off unless set.
///
/// The history has at most a hundred groups, each of the bytes logged within `group_ms` milliseconds. So for traffic of
/// many pieces a hundred times `group_ms` must be more than `span`. A `group_ms` of 0 counts as 1.
GLUE_EXPORT void logging_source_use_time_of_writing(logging_source_t source, bool on, unsigned group_ms = 1);

/// The state of a source.
struct logging_source_status {
    bool enabled;
    bool busy;
    std::uint64_t dropped;    ///< bytes, since the program was started
    std::uint64_t file_bytes; ///< bytes that the writer has written to the open file
    std::uint64_t queued;     ///< bytes that wait for the writer, for any file
    unsigned history_bytes;   ///< bytes in the history
    unsigned file_age;        ///< milliseconds since the file was opened
    char path[1024];          ///< of the open file, never cut; "" when none is open
};
GLUE_EXPORT logging_source_status logging_source_get_status(logging_source_t source);
