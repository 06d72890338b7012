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
// **One reader, one writer.** The store has one slot for a file being read and one for a file being written, for the
// whole process: opening returns no handle, the other calls act on the file in the slot. While the slot is in use,
// opening reports that the store is busy, and the caller tries again. A file may be read and written at the same time;
// an open file cannot be removed.
//
// **Names** have 1 to `pcf_longest_name` characters, do not begin with "." and contain no "/". Other entries of the
// directory (other names, folders, links) are not part of the store and are left unchanged.
//
// **Full.** The store is full when its files hold `PcfInfo::total` bytes, regardless of the free space of the disk:
// `pcfWrite` writes what fits. When the disk is full before that, `pcfWrite` writes what fits on the disk.
//
// **What is lost** when the process dies or the power fails:
// - Files that are not being written stay whole. After a failure the store can be mounted as it is.
// - The file being written keeps its content from before it was opened. What was written since is safe when
//   `pcfCloseWrite` has returned non-zero. Before that, a killed process loses only what it has not yet passed to
//   `pcfWrite`; a power failure may lose any part of it, even a file just created.
// - A removal is permanent when `pcfRemove` has returned non-zero; a power failure before that may bring the file back.
//
// **Threads.** All operations may be called from any thread. The store has one lock; it is held during disk operations,
// also while `pcfCloseWrite` and `pcfRemove` wait for the medium. Reading and writing allocate nothing.
//
// **Processes.** A directory is mounted by one process at a time. Files that other programs add, change or remove
// meanwhile are noticed at the next mount.
//
// Parameters without a name are for makers whose stores give them a meaning; no effect here.

/// Longest name of a file, in characters.
constexpr unsigned pcf_longest_name = 39;

enum PcfResult {
    pcf_ok = 0,
    pcf_busy = 1,        ///< another file is open
    pcf_failed = 2,      ///< the disk reports an error; the debug printer has the details
    pcf_missing = 3,     ///< no such file, or no store mounted
    pcf_wrong_state = 4, ///< no file is open
};

/// Bytes of the store: the limit, and the free space.
struct PcfInfo {
    std::uint32_t total;
    std::uint32_t free;
};

// ---- Mounting: called by the application ----

/// Mounts an existing directory.
/// \param total  bytes that all files together may hold; if they hold more already, they stay, and nothing fits
/// \return false when a store is mounted already, or, with a message through the debug printer, when the directory
///         cannot be read or another process has mounted it
[[nodiscard]] bool pcfMount(const char* directory, std::uint32_t total);

/// Closes the open files, as the close operations do, and releases the directory. Does nothing when none is mounted.
void pcfUnmount();

// ---- The store as a whole ----

/// \return non-zero while a store is mounted
int pcfIsMounted(const char*);

/// \return non-zero, with `info` filled, while a store is mounted
int pcfInfo(PcfInfo& info);

/// The path of the mounted directory as given to `pcfMount`, or of the last one; empty before the first mount. Valid
/// until the next mount.
const char* pcfDirectory();

/// \return the number of files; 0 when no store is mounted
int pcfGetNumFiles();

/// Copies the name of file `index`, counted from 0 in the order of the names, into `name`, with its NUL.
/// \param name  `pcf_longest_name` + 1 bytes
/// \return non-zero when there is such a file
int pcfGetFileName(int index, char* name);

/// \return non-zero when there is such a file
int pcfExists(const char* name);

/// Removes a file.
/// \return non-zero when it is permanently removed; zero when there is none, when it is open, or when the disk reports
///         an error
int pcfRemove(const char* name);

// ---- Reading ----

/// Opens a file for reading from `offset` on, which may be past its end.
/// \return a `PcfResult`: ok, busy, missing, failed
[[nodiscard]] int pcfOpenRead(const char* name, unsigned long offset, int*);

/// Reads up to `size` bytes.
/// \param result  ok (also at the end of the file), wrong state, failed
/// \return the bytes read; 0 at the end of the file or with a result that is not ok
int pcfRead(void* buffer, int size, PcfResult& result, int);

/// \return a `PcfResult`: ok, wrong state
int pcfCloseRead(int);

// ---- Writing ----

/// Opens an existing file for writing at its end.
/// \return non-zero on success; zero when it does not exist, when the store is busy or the disk reports an error
[[nodiscard]] int pcfOpenWrite(const char* name, int*);

/// Creates a file and opens it for writing.
/// \return non-zero on success; zero when it exists already, when the name is invalid, when the store is busy or not
///         mounted, or when the disk reports an error
[[nodiscard]] int pcfCreateWrite(const char* name, int*);

/// Appends `size` bytes to the file that is open for writing.
/// \return the bytes written: fewer when the store or the disk is full or the disk reports an error; 0 when no file is
///         open
[[nodiscard]] int pcfWrite(const void* data, int size, int);

/// Closes the file that is open for writing and waits until the medium has stored it.
/// \return non-zero when everything written is safe; zero when that failed or no file was open
[[nodiscard]] int pcfCloseWrite(int);
