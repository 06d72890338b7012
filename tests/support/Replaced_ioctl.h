#pragma once

#include <optional>

/// Answers `ioctl` in the place of the C library; nothing: what that answers.
using Ioctl_replacement = std::optional<int> (*)(int fd, unsigned long request, void* argument);

/// Uses a replacement from now on; null: none. There is one at a time, which a simulated line or a test of files sets.
void replace_ioctl(Ioctl_replacement replacement);
