#pragma once

#include "logging/Log_file.h"
#include "logging/Log_history.h"
#include "logging/Log_queue.h"

#include <glue/logging/logging_source.h>

#include <platform/Task.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

/// One logging source: its history, its queue, and the thread that writes. The states are drawn in the source.
///
/// One mutex guards everything. A thread holds it while it opens or deletes files, never while it writes or flushes
/// one.
class Log_source {
  public:
    explicit Log_source(const char* task_name) : task_(task_name) {}

    void configure(bool direct, unsigned span, unsigned history_size, Log_file_naming naming, bool open_now);
    void enable(bool on);
    bool is_enabled() const { return enabled_; }
    bool is_busy() const { return state_ == State::rotating; }
    bool write(const unsigned char* bytes, unsigned count);
    void flush(bool rotate);
    void delete_files(bool also_current);
    void use_time_of_writing(bool on, unsigned group_ms);
    logging_source_status status();

    static void set_period(unsigned ms);

    /// Makes the writer end as soon as the queue is empty. Never waits; a caller repeats it until the writer has ended.
    /// \return whether no writer runs
    [[nodiscard]] bool end_writer();
    /// Waits until the thread of a writer that has ended has returned, too. That takes no time.
    void join_ended_writer() {
        if (state_ == State::ended)
            task_.join();
    }

  private:
    using Lock = std::unique_lock<std::mutex>;

    enum class State { no_writer, logging, rotation_wanted, rotating, ended };

    static constexpr unsigned queue_beyond_history = 256 * 1024;
    static constexpr unsigned largest_write = 64 * 1024;

    // With the lock held. Those that wait release it meanwhile.
    bool rotation_pending() const { return state_ == State::rotation_wanted || state_ == State::rotating; }
    void await_no_rotation(Lock& lock);
    bool start_writer();
    void set_state(State state);
    void flush_file(Lock& lock);
    void rotate(Lock& lock);
    void close_file();
    bool open_file();
    void queue_history();
    bool append(const unsigned char* bytes, unsigned count);
    bool queue(const unsigned char* bytes, unsigned count);
    bool keep(const unsigned char* bytes, unsigned count);
    std::int64_t key_for(std::int64_t now) const;

    // The writer. All with the lock held, and released while the disk works.
    static void* run_writer(void* source);
    void run();
    void write_piece(Lock& lock, std::vector<unsigned char>& buffer);
    void write_history(Lock& lock);

    std::mutex mutex_;
    std::condition_variable changed_; ///< notified when the state, the queue or the wish to end has changed
    Task task_;

    Log_file_naming naming_;
    bool configured_ = false;
    unsigned span_ = 0;
    unsigned history_size_ = 0;
    Log_history history_; ///< the writer's alone while the state is rotating
    bool by_time_of_writing_ = false;
    std::int64_t group_ms_ = 1;
    Log_queue queue_;
    std::uint64_t queued_ = 0;  ///< bytes that were ever queued
    std::uint64_t written_ = 0; ///< those of them that the writer has written or dropped
    std::string kept_path_;     ///< of the file opened last
    std::int64_t opened_at_ = 0;
    std::uint64_t file_bytes_ = 0;
    bool open_failure_reported_ = false;
    bool start_failure_reported_ = false;
    bool end_wanted_ = false;

    // Set with the lock held. Read without it, too: a logging caller and the readers of flags never wait for a disk.
    std::atomic<State> state_{State::no_writer};
    std::atomic<bool> enabled_{false};
    std::atomic<std::uint64_t> dropped_{0}; ///< also added to without the lock
};
