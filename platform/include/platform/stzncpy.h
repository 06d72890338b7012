#pragma once

#include <cstddef>

/// Copies the text `source` into the `size` bytes at `destination`, cut to `size` - 1 characters and always terminated.
/// Does nothing when `size` is 0.
/// \return `destination`
char* stzncpy(char* destination, const char* source, std::size_t size);
