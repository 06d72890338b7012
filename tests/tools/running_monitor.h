#pragma once

#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/processes/processes.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using Arguments = std::vector<std::string>;

inline Program monitor_with(Arguments arguments) {
    return Program(RECEIVER_MONITOR, std::move(arguments));
}

/// A monitor that runs in parallel with the test and reads a FIFO that the test writes.
class Running_monitor {
  public:
    explicit Running_monitor(Arguments arguments = {}) {
        arguments.insert(arguments.end(), {"--device", folder_.make_fifo("link")});
        folder_.make_file("output", "");
        link_ = open(folder_.path("link").c_str(), O_RDWR | O_CLOEXEC);
        thread_ = std::thread([this, arguments] {
            result_ = monitor_with(arguments)
                          .output_to(folder_.path("output"))
                          .once_started([this](pid_t pid) { pid_ = pid; })
                          .run();
            pid_ = 0; // another process may get this number from now on
        });
        EXPECT_TRUE(eventually([&] { return pid_ != -1; }));
    }
    ~Running_monitor() {
        if (thread_.joinable())
            end();
        close(link_);
    }

    void send(const std::string& bytes) { write_all(link_, bytes); }
    void expect_output(const std::string& text) {
        EXPECT_TRUE(eventually([&] { return folder_.content_of("output") == text; })) << folder_.content_of("output");
    }
    void signal(int number) { send_signal(pid_, number); }
    /// Whether it waits, and so has handled every earlier signal.
    bool rests() const { return sleeps(pid_); }
    const Program_result& end() {
        thread_.join();
        return result_;
    }

  private:
    Temporary_folder folder_;
    int link_ = -1;
    std::atomic<pid_t> pid_{-1};
    Program_result result_;
    std::thread thread_;
};
