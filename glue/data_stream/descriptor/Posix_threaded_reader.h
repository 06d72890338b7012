#pragma once

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <platform/Atime.h>

#include <algorithm>
#include <cstdint>

namespace glue_detail {
class Select;
}

/// What the reader thread of a stream does, and its state between two waits.
class Posix_threaded_data_stream::Reader {
  public:
    explicit Reader(Posix_threaded_data_stream& owner) : stream_(owner) {}

    /// Returns when the stream stops the thread.
    void run();

  private:
    /// The condition of one descriptor, or of `select`: a repeated failure is reported once, and a descriptor that
    /// failed or is at its end of file rests for a while.
    class Condition {
      public:
        /// \return whether this error is a new one
        bool failed(int error);
        void worked() { last_error_ = 0; }
        void rest(int fd);
        /// Milliseconds that `fd` still rests; 0 for every descriptor except the resting one.
        std::int64_t rest_left(int fd) const;

      private:
        int last_error_ = 0;
        int resting_fd_ = -1;
        Atime rests_until_;
    };

    /// The time limit of a wait: the shortest of those that were set.
    class Wait_limit {
      public:
        void at_most(std::int64_t ms) { ms_ = is_set() ? std::min(ms_, ms) : ms; }
        bool is_set() const { return ms_ >= 0; }
        std::int64_t ms() const { return ms_; }

      private:
        std::int64_t ms_ = -1;
    };

    /// The descriptors of a wait; -1 for those that it does not include.
    struct Watched {
        int requests = -1;
        int output = -1;
        int input = -1;
    };

    /// What is ready after a wait.
    struct Ready {
        bool requests = false;
        bool output = false;
        bool input = false;
    };

    Ready wait();
    Watched watch(glue_detail::Select& select, Wait_limit& limit) const;
    bool descriptors_are_good() const;
    void handle_unlimited_timeout() const;
    void handle_failed_select(int error);
    void hold_off() const;
    bool bytes_are_queued() const;

    bool handle_requests();
    void notify_when_quiet();
    std::int64_t quiet_time_left() const;
    void run_timer();

    void send_queued();
    void handle_failed_write(int fd);

    void receive();
    void handle_failed_read(int fd);
    void handle_end_of_file(int fd);
    void deliver(const unsigned char* bytes, unsigned int count);
    bool deliver_at_once(const unsigned char* bytes, unsigned int count);
    unsigned int deliver_what_fits(const unsigned char* bytes, unsigned int count);

    Posix_threaded_data_stream& stream_;
    Condition select_condition_;
    Condition input_condition_;
    Condition output_condition_;
    Atime last_input_;
};
