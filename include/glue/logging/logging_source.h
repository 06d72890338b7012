#pragma once

#include <glue/export.h>

#include <cstdint>

/// Traffic logs: each of three sources records a stream of bytes into files of its own.
///
/// As long as no file is open, a source that is enabled keeps the most recent stretch of its traffic in memory, so that
/// a log that is started later begins with what came just before. With a file open its bytes go there. A thread for
/// each source does all the writing: who logs does not wait for that.
///
///     logging_source_enable(logging_source_receiver, true);       // nothing to open yet: keeps history only
///     logging_source_configure(logging_source_receiver, false, 10000, 1 << 20,
///                              "/data/logs", "receiver", "raw", false);
///     logging_source_write(logging_source_receiver, begin, end);  // for every piece of traffic
///     ...
///     logging_source_enable(logging_source_receiver, true);       // opens a file: history first, then what comes
///     ...
///     logging_source_flush(logging_source_receiver, false);       // all of that is in the file now
///
/// **What is in a file.** After `logging_source_enable` opened it: the history, then every byte written from then on,
/// in order, none twice, none missing but those dropped. After a rotation (`logging_source_flush` with `rotate`): the
/// history alone; the source has no file then, and keeps history again for the next rotation. A source that is rotated
/// at least once in the time that its history reaches back has all of its traffic in files, but for what comes while
/// one is being written: that is dropped. A direct source has no history: what comes after a rotation is dropped, too,
/// until it is switched on again.
///
/// **What is dropped** is counted, see `logging_source_get_status`: bytes that come while a rotation is being written;
/// a piece that is as large as the history or larger, without a file; a piece that does not fit the queue of a file
/// that the disk is too slow for (256 KiB beyond the history); what a full or broken disk refuses. What the history no
/// longer reaches back to is not counted.
///
/// **What is lost.** When the process is killed: the history, and what is queued for the disk at that moment. At a
/// power cut: also what the system has not written yet; only a rotation, when it has finished, has brought everything
/// of its file to the medium. When the process exits every source is given up to a second to write what is queued.
/// Files that are complete are never touched again.
///
/// **Threads.** Every operation may be called from any thread. A disk that hangs while it writes blocks who flushes,
/// and, while a rotation is being written, who enables, configures or rotates. A disk that hangs while a file is opened
/// (enable, configure, rotation) or while files are removed blocks everyone who uses that source, but for the two that
/// read its flags.
enum logging_source_t {
    logging_source_receiver = 0,    ///< a receiver's traffic
    logging_source_corrections = 1, ///< what it is sent to be more precise
    logging_source_port = 2         ///< any other port
};
constexpr int logging_source_count = 3;

/// Characters of a directory, a name or a suffix that are used; what is longer is cut there.
constexpr unsigned logging_source_longest_field = 256;

/// Says where a source's files are to be, and how much history is kept. Leaves the source without an open file,
/// unless it is `direct` and `open_now`.
///
/// Waits while a rotation is being written. The history stays when `history_size` is the same as before and
/// `span` is 0 or not 0 as before; a direct source then puts it first into the file that it opens.
/// \param direct        keep no history: everything goes into the file
/// \param span          milliseconds that the history reaches back; 0: no history
/// \param history_size  bytes of memory for it
/// \param directory     where the files are: of what is given here the first 256 characters. An empty text is the root
///                      of the file system: files are "/name_suffix_...". Null is an empty text, also below.
/// \param name, suffix  as long at most; files are "directory/name_suffix_20250512_063000.log", the time being UTC
///                      ("-unknown-" where it is none that a calendar has), and, where that exists already,
///                      "..._000000.log" and so on
/// \param open_now      for a direct source: open a file at once
GLUE_EXPORT void logging_source_configure(logging_source_t source, bool direct, unsigned span, unsigned history_size,
                                          const char* directory, const char* name, const char* suffix, bool open_now);

/// Switches a source on or off. Switching on opens a new file when none is open and the source has been configured; a
/// file that cannot be opened is told of once on standard error, and the source goes on without one; so does one whose
/// writing thread cannot be started. Both are tried again the next time. Switching off leaves the file open. Waits
/// while a rotation is being written.
GLUE_EXPORT void logging_source_enable(logging_source_t source, bool on);

GLUE_EXPORT bool logging_source_is_enabled(logging_source_t source);
/// Whether a rotation is being written.
GLUE_EXPORT bool logging_source_is_busy(logging_source_t source);

/// Logs the bytes from `begin` up to `end`. Never waits until something is written.
/// \return false when the source is not enabled
GLUE_EXPORT bool logging_source_write(logging_source_t source, const unsigned char* begin, const unsigned char* end);
/// The same for a text, up to its NUL. Null is an empty text.
GLUE_EXPORT bool logging_source_write(logging_source_t source, const char* text);

/// Waits until everything that was written so far is in the open file. With `rotate` the history then goes into
/// a new file, which is written in the background and brought to the medium. Does nothing when the source is not
/// enabled or a rotation is being written. Returns when the rotation has begun; two who rotate take turns.
GLUE_EXPORT void logging_source_flush(logging_source_t source, bool rotate);

/// Removes the source's log files, all but the one opened last. On purpose that is everything whose name begins as
/// theirs do, up to the time: also the files of a source in the same directory whose suffix is this one, a "_" and
/// more.
GLUE_EXPORT void logging_source_delete_old(logging_source_t source);
/// Removes all of the source's log files.
GLUE_EXPORT void logging_source_delete_all(logging_source_t source);

/// Sets the period that history is grouped by, 1000 ms unless set; 0 is ignored. For all sources.
///
/// On purpose the age of a group is not its time but the period times what is left of the time modulo the period, so
/// that what the history keeps depends on how long the unit has been up. See `logging_source_use_time_of_writing`.
GLUE_EXPORT void logging_source_testing_override_timed_bucket_ms(unsigned ms);

// ---- Additions of ours ----

/// Lets a source's history age by the time of writing instead of by the key above: it then reaches back as far as
/// `span` says, and up to `group_ms` further. Off unless set.
///
/// The history holds a hundred groups at most, each of all that was written within `group_ms` milliseconds. So for
/// traffic that comes in many pieces a hundred times `group_ms` has to be more than `span`; 0 counts as 1.
GLUE_EXPORT void logging_source_use_time_of_writing(logging_source_t source, bool on, unsigned group_ms = 1);

/// How a source stands.
struct logging_source_status {
    bool enabled;
    bool busy;
    std::uint64_t dropped;    ///< bytes, since the program began
    std::uint64_t file_bytes; ///< that the writing thread has put into the open file
    std::uint64_t queued;     ///< bytes that wait for the writing thread, for whichever file
    unsigned history_bytes;   ///< kept in memory
    unsigned file_age;        ///< milliseconds since the file was opened
    char path[1024];          ///< of the open file, whole: it cannot be longer; "" when none is
};
GLUE_EXPORT logging_source_status logging_source_get_status(logging_source_t source);
