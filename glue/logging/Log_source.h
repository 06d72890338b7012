#pragma once

#include "logging/Log_file.h"
#include "logging/Log_history.h"

#include <glue/logging/logging_source.h>

#include <platform/Task.h>

#include <QSemaphore>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

/// One logging source: its history, its file, and the thread that writes.
///
///                    enable(true)                        rotate
///     no file,     ----------------->  file open,      ---------->  busy: the history goes into a new file,
///     history                          bytes queued                 bytes are dropped
///        ^                                |                              |
///        +--------------------------------+------------------------------+
///                     configure                         written
///
/// Bytes for an open file go through a queue, with those for files before it in front; the writer takes them out,
/// writes them without the lock, and closes a file that is finished. A rotation that is asked for comes after all of
/// them; until it begins, what is logged still goes into the history.
class Log_source {
  public:
    explicit Log_source(const char* task_name) : task_(task_name) {}

    void configure(bool direct, unsigned span, unsigned history_size, Log_file_naming naming, bool open_now);
    void enable(bool on);
    bool is_enabled() const { return enabled_; }
    bool is_busy() const { return busy_; }
    bool write(const unsigned char* bytes, unsigned count);
    void flush(bool rotate);
    void delete_files(bool also_current);
    void use_time_of_writing(bool on, unsigned group_ms);
    logging_source_status status();

    static void set_period(unsigned ms);

    /// Asks the writer to end, after what is queued. \return at once
    void ask_to_end();
    bool has_ended() const { return !running_; }
    /// Waits for the thread of a writer that has ended to be gone, too: that takes no time.
    void join_ended() {
        if (has_ended())
            task_.join();
    }

  private:
    using Lock = std::unique_lock<std::mutex>;

    /// A file that is closed when the bytes of the queue that belong to it are written.
    struct Finished_file {
        std::shared_ptr<Log_file> file;
        unsigned bytes;
    };

    static constexpr unsigned queue_beyond_history = 256 * 1024;
    static constexpr unsigned largest_write = 64 * 1024;

    // With the lock held
    bool start_writer();
    bool may_rotate() const { return enabled_ && !busy_ && !rotation_wanted_; }
    void flush_file(Lock& lock);
    void rotate(Lock& lock);
    void resize_queue();
    void let_go_of_file();
    bool open_file();
    void queue_history();
    bool queue(const unsigned char* bytes, unsigned count);
    bool keep(const unsigned char* bytes, unsigned count);
    std::int64_t key_for(std::int64_t now) const;
    void wake_writer();

    // The writer
    static void* run_writer(void* source);
    void run();
    bool write_queue(std::vector<unsigned char>& piece);
    void write_history();
    bool ends();

    std::mutex rotation_turn_; ///< taken before the other: one at a time asks for a rotation and awaits its beginning
    std::mutex mutex_;
    std::condition_variable progress_; ///< told whenever the writer has got on
    QSemaphore request_;
    QSemaphore acknowledgement_;
    Task task_;

    // Guarded by the mutex
    Log_file_naming naming_;
    bool configured_ = false;
    unsigned span_ = 0;
    unsigned history_size_ = 0;
    Log_history history_; ///< the writer's alone while busy
    bool by_time_of_writing_ = false;
    std::int64_t group_ms_ = 1;
    std::shared_ptr<Log_file> file_;
    std::string kept_path_; ///< of the file opened last
    std::int64_t opened_at_ = 0;
    std::uint64_t file_bytes_ = 0;
    bool open_failure_told_ = false;
    bool start_failure_told_ = false;
    std::unique_ptr<Owned_ring<unsigned char>> queue_;
    std::deque<Finished_file> finished_; ///< in the order of their bytes in the queue
    unsigned bytes_for_file_ = 0;        ///< those of the open file, behind them
    std::uint64_t queued_ = 0;           ///< bytes that ever went into the queue
    std::uint64_t written_ = 0;          ///< those of them that the writer has dealt with
    bool rotation_wanted_ = false;
    bool started_ = false;

    std::atomic<bool> enabled_{false};
    std::atomic<bool> busy_{false};
    std::atomic<bool> stop_{false};
    std::atomic<bool> running_{false};
    std::atomic<std::uint64_t> dropped_{0};
};
