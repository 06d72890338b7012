#pragma once

#include <glue/logging/logging_source.h>

#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A logging source whose files, "traffic_raw_<time>.log", have a folder of their own. When the test ends, the source
/// is switched off and has no file.
class Traffic_log {
  public:
    static constexpr unsigned long_span = 4000000000U;

    explicit Traffic_log(logging_source_t source = logging_source_receiver) : source_(source) {
        logging_source_use_time_of_writing(source_, true);
        dropped_before_ = status().dropped;
    }
    ~Traffic_log() {
        logging_source_enable(source_, false);
        logging_source_configure(source_, false, 0, 0, folder_.path().c_str(), "unused", "unused", false);
        logging_source_testing_override_timed_bucket_ms(1000);
    }
    Traffic_log(const Traffic_log&) = delete;
    Traffic_log& operator=(const Traffic_log&) = delete;

    const Temporary_folder& folder() const { return folder_; }

    void configure(unsigned span = long_span, unsigned size = 1000, bool direct = false, bool open_now = false) {
        logging_source_configure(source_, direct, span, size, folder_.path().c_str(), "traffic", "raw", open_now);
    }
    /// Enables the source and empties its history; no file is open.
    void keep_history(unsigned span = long_span, unsigned size = 1000) {
        configure(0, 0);
        enable();
        configure(span, size);
        logging_source_delete_all(source_);
    }
    void enable(bool on = true) { logging_source_enable(source_, on); }
    bool write(const std::string& bytes) {
        const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
        return logging_source_write(source_, begin, begin + bytes.size());
    }
    /// Waits until everything logged so far is in the file.
    void settle() { logging_source_flush(source_, false); }
    /// Waits until the history is in a file of its own, which may not be on the medium and closed yet.
    void rotate() {
        wait_for_rotation(); // a second one would do nothing
        logging_source_flush(source_, true);
        wait_for_rotation();
    }
    logging_source_status status() const { return logging_source_get_status(source_); }

    /// Bytes dropped since this object was constructed.
    std::uint64_t dropped() const { return status().dropped - dropped_before_; }

    /// The names of all files, sorted: the order in which they were opened.
    std::vector<std::string> files() const { return folder_.names(); }
    /// The content of each file, in the same order.
    std::vector<std::string> contents() const {
        std::vector<std::string> contents;
        for (const std::string& name : files())
            contents.push_back(folder_.content_of(name));
        return contents;
    }
    /// The content of the only file.
    std::string content() const {
        const auto all = contents();
        return all.size() == 1 ? all.front() : "(" + std::to_string(all.size()) + " files)";
    }

  private:
    void wait_for_rotation() const {
        EXPECT_TRUE(eventually([this] { return !logging_source_is_busy(source_); }));
    }

    logging_source_t source_;
    Temporary_folder folder_;
    std::uint64_t dropped_before_;
};
