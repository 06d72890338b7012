#pragma once

#include <cstdint>

// The file store: a small flat store of named files for settings and records, in a directory of the host, with a limit
// on the bytes that all files together may hold.
//
//     if (!pcfMount("/var/lib/unit/store", 16384))   // the application, once, at its start
//         ...
//     if (pcfCreateWrite("setup", nullptr)) {
//         const int written = pcfWrite(data, size, -1);
//         const bool kept = pcfCloseWrite(-1) && written == size;
//     }
//
// **One reader, one writer.** The store has one place for a file being read and one for a file being written, for the
// whole process: the open calls take no handle back, the others act on the file in the place. Who finds the place taken
// is told that the store is busy, and tries again. One file may be read and written at a time; a file that is open
// cannot be removed.
//
// **Names** have 1 to `pcf_longest_name` characters, do not begin with "." and contain no "/". What else the directory
// holds (other names, folders, links) is no part of the store and stays untouched.
//
// **Full.** The store is full when its files hold `PcfInfo::total` bytes, whatever the disk could still take:
// `pcfWrite` writes what fits. When the disk itself is full before that, `pcfWrite` writes what the disk takes.
//
// **What is lost** when the process dies or the power fails:
// - Files not being written stay whole. A store that was cut off can be mounted as it is.
// - The file being written keeps what it held before it was opened. Of what was written since, `pcfCloseWrite` makes
//   sure by returning non-zero: before that, a killed process loses only what it had not handed to `pcfWrite` yet,
//   while a power failure may lose any part of it, a file just created included.
// - A removal is sure when `pcfRemove` returns non-zero; a power failure before that may leave the file as it was.
//
// **Threads.** All operations may be called from any thread. One lock serves the store; it is held while the disk
// works, also while `pcfCloseWrite` and `pcfRemove` wait for the medium. Nothing is allocated while reading or writing.
//
// **Processes.** A directory is mounted by one process at a time. Files that somebody else puts into it, changes or
// removes meanwhile are noticed when it is mounted the next time.
//
// Parameters without a name are for makers whose stores give them a meaning; of no effect here.

/// Longest name of a file, in characters.
constexpr unsigned pcf_longest_name = 39;

enum PcfResult {
    pcf_ok = 0,
    pcf_busy = 1,        ///< another file is open
    pcf_failed = 2,      ///< the disk reports an error, which the debug printer tells
    pcf_missing = 3,     ///< no such file, or no store mounted
    pcf_wrong_state = 4, ///< no file is open
};

/// Bytes of the store: all it may hold, and what is left of that.
struct PcfInfo {
    std::uint32_t total;
    std::uint32_t free;
};

// Mounting. These two are the application's.

/// Mounts a directory, which exists already.
/// \param total  bytes that all files together may hold; files that hold more already stay, and nothing fits
/// \return false when a store is mounted already, or when the directory cannot be read, or another process has it
///         mounted (told through the debug printer)
bool pcfMount(const char* directory, std::uint32_t total);

/// Closes what is open, as the close operations do, and lets the directory go. Nothing happens when none is mounted.
void pcfUnmount();

// ---- The store as a whole ----

/// \return non-zero while a store is mounted
int pcfIsMounted(const char*);

/// \return non-zero, with `info` filled, while a store is mounted
int pcfInfo(PcfInfo& info);

/// The mounted directory's path as it was given, or the last one's; empty before the first. Valid until the next mount.
const char* pcfDirectory();

/// \return the number of files; 0 when no store is mounted
int pcfGetNumFiles();

/// Copies the name of file `index`, counted from 0 in the order of the names, into `name`, with its NUL.
/// \param name  room for `pcf_longest_name` + 1 characters
/// \return non-zero when there is such a file
int pcfGetFileName(int index, char* name);

/// \return non-zero when there is such a file
int pcfExists(const char* name);

/// Removes a file.
/// \return non-zero when it is gone for sure; zero when there is none, when it is open, or when the disk reports an
/// error
int pcfRemove(const char* name);

// ---- Reading ----

/// Opens a file for reading from `offset` on, which may lie beyond its end.
/// \return a `PcfResult`: ok, busy, missing, failed
int pcfOpenRead(const char* name, unsigned long offset, int*);

/// Reads up to `size` bytes.
/// \param result  ok (also at the end of the file), wrong state, failed
/// \return the bytes read; 0 at the end of the file or with a result that is not ok
int pcfRead(void* buffer, int size, PcfResult& result, int);

/// \return a `PcfResult`: ok, wrong state
int pcfCloseRead(int);

// ---- Writing ----

/// Opens an existing file for writing at its end.
/// \return non-zero on success; zero when it does not exist, when the store is busy or the disk reports an error
int pcfOpenWrite(const char* name, int*);

/// Makes a file and opens it for writing.
/// \return non-zero on success; zero when it exists already, when the name will not do, when the store is busy or not
///         mounted, or the disk reports an error
int pcfCreateWrite(const char* name, int*);

/// Appends `size` bytes to the file that is open for writing.
/// \return the bytes written: fewer when the store or the disk is full or the disk reports an error; 0 when none is
/// open
int pcfWrite(const void* data, int size, int);

/// Closes the file that is open for writing and waits until the medium has it.
/// \return non-zero when what was written is kept for sure; zero when that failed or none was open
int pcfCloseWrite(int);
