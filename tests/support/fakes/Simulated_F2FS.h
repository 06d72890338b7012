#pragma once

#include <support/faults/Watched_file_calls.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

/// Makes a folder behave as on a file system with atomic writes: when a file is closed without a commit, it has its old
/// content again. For one such file at a time.
class Simulated_F2FS {
  public:
    /// \param calls  receives "open NAME" followed by "create", "append" and "truncate", "ioctl 0x...", "truncate
    ///               LENGTH", "write" and "close"
    /// \param fault  may answer instead of the file system
    Simulated_F2FS(std::string folder, std::vector<std::string>& calls, Watched_file_calls::Decision fault = {})
        : folder_(std::move(folder)),
          calls_(calls),
          fault_(std::move(fault)),
          watched_(folder_, [this](const File_call& call) { return decide(call); }) {}

    bool start_fails = false;
    bool commit_fails = false;
    bool truncate_fails = false;

    /// The content of a file on the medium.
    std::string committed(const std::string& name) const { return atomic_fd_ >= 0 ? old_ : content_of(name); }
    /// Does to open files what the death of their process does.
    void kill_process() { restore(); }

  private:
    static constexpr long start = 0xF501;
    static constexpr long commit = 0xF502;

    Watched_file_calls::Answer decide(const File_call& call) {
        record(call);
        if (call.what == "close" && call.fd == atomic_fd_)
            restore();
        if (const auto answer = fault_ ? fault_(call) : std::nullopt)
            return answer;
        if (call.what == "ioctl")
            return answer_ioctl(call);
        if (call.what == "truncate" && truncate_fails) {
            errno = EIO;
            return -1;
        }
        return std::nullopt;
    }

    void record(const File_call& call) {
        char text[32] = "";
        if (call.what == "open")
            calls_.push_back("open " + call.name + ((call.number & O_CREAT) != 0 ? " create" : "") +
                             ((call.number & O_APPEND) != 0 ? " append" : "") +
                             ((call.number & O_TRUNC) != 0 ? " truncate" : ""));
        else if (call.what == "ioctl")
            std::snprintf(text, sizeof text, "ioctl 0x%lx", static_cast<unsigned long>(call.number));
        else if (call.what == "truncate")
            std::snprintf(text, sizeof text, "truncate %ld", call.number);
        else if (call.what == "write" || call.what == "close")
            calls_.push_back(call.what);
        if (*text != '\0')
            calls_.emplace_back(text);
    }

    Watched_file_calls::Answer answer_ioctl(const File_call& call) {
        const bool fails = call.number == start ? start_fails : commit_fails;
        if (fails || (call.number != start && call.number != commit)) {
            errno = ENOTTY;
            return -1;
        }
        if (call.number == start) {
            atomic_fd_ = call.fd;
            name_ = call.name;
            old_ = content_of(name_);
        } else {
            atomic_fd_ = -1;
        }
        return 0;
    }

    void restore() {
        if (atomic_fd_ < 0)
            return;
        atomic_fd_ = -1;
        std::ofstream(folder_ + "/" + name_, std::ios::binary | std::ios::trunc) << old_;
    }

    std::string content_of(const std::string& name) const {
        std::ifstream file(folder_ + "/" + name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    std::string folder_;
    std::vector<std::string>& calls_;
    Watched_file_calls::Decision fault_;
    int atomic_fd_ = -1;
    std::string name_;
    std::string old_;
    Watched_file_calls watched_;
};
