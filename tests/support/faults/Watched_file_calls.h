#pragma once

#include <support/faults/Replaced_calls.h>
#include <support/faults/Replaced_file_calls.h>

#include <functional>
#include <optional>
#include <string>

/// A call to the C library about a file.
struct File_call {
    std::string what; ///< "open", "read", "write", "seek", "truncate", "sync", "ioctl", "lock", "rename", "unlink",
                      ///< "mode", "owner", "stat", "access" or "close"
    std::string name; ///< of the file or folder, without its path
    int fd = -1;
    std::string bytes; ///< what is written
    std::string to;    ///< the new name
    long number = 0;   ///< flags of an opening, length of a truncation, request of an ioctl, size of a transfer
};

/// While it lives, observes every call about a folder and its files before it is made, and replaces the call when the
/// test returns a result. For one thread.
///
///     const Watched_file_calls watched(folder, [&](const File_call& call) -> Watched_file_calls::Answer {
///         if (call.what != "sync")
///             return std::nullopt;
///         errno = EIO;
///         return -1;
///     });
///
/// Calls that the test makes while it decides are not observed.
class Watched_file_calls {
  public:
    using Answer = std::optional<long>;
    using Decision = std::function<Answer(const File_call& call)>;

    Watched_file_calls(const std::string& folder, Decision decision);

  private:
    Answer by_descriptor(const char* what, int fd, long number = 0, std::string bytes = {});
    Answer by_name(const char* what, const char* name, long number = 0, const char* to = "");
    Answer decide(const File_call& call);

    std::string folder_;
    Decision decision_;
    bool deciding_ = false;
    Replaced_file_calls calls_;
    Replaced_calls transfers_;
};
