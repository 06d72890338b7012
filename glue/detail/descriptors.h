#pragma once

namespace glue_detail {

/// The descriptor, or, when it has the number of a standard one, a copy above those; the original is closed then. A
/// process that runs without standard streams gets their numbers for what it opens. \return -1, with the reason in
/// `errno`, when there was no descriptor or no copy could be made
int above_standard(int fd);

/// Opens a file of a folder (AT_FDCWD: any path) above the standard ones, and so that programs that this process starts
/// do not inherit it.
int open_above_standard(int folder, const char* name, int flags, int permissions);

/// Programs that this process starts do not inherit the descriptor.
void close_on_exec(int fd);

/// Reads and writes return instead of wait.
void make_non_blocking(int fd);

/// Nothing to close when the number is negative.
void close_if_open(int fd);

} // namespace glue_detail
