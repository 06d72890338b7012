#pragma once

namespace glue_detail {

/// Replaces a descriptor that has the number of a standard one (0, 1 or 2) by a copy above those, and closes the
/// original. A process that runs without standard streams gets their numbers for the files that it opens.
/// \return the descriptor or its copy; -1, with the reason in `errno`, when `fd` is negative or cannot be copied
int above_standard(int fd);

/// Opens a file in a folder (AT_FDCWD: any path). The descriptor is above the standard ones, and programs that this
/// process starts do not inherit it.
int open_above_standard(int folder, const char* name, int flags, int permissions);

/// From now on, programs that this process starts do not inherit the descriptor.
void close_on_exec(int fd);

/// From now on, reads and writes return instead of waiting.
void make_non_blocking(int fd);

/// Closes a descriptor; does nothing when it is negative.
void close_if_open(int fd);

} // namespace glue_detail
