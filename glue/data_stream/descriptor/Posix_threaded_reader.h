#pragma once

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <platform/Atime.h>

#include <cstdint>

/// What the reader thread of a stream does, and what it remembers from one round to the next.
class Posix_threaded_data_stream::Reader {
  public:
    explicit Reader(Posix_threaded_data_stream& owner) : stream_(owner) {}

    /// Until the stream stops it.
    void run();

  private:
    /// How it goes with one descriptor, or with `select`: what fails again and again is reported once, and what has
    /// nothing to give is let alone for a while.
    class Condition {
      public:
        /// \return whether this error is news
        bool failed(int error);
        void worked() { last_error_ = 0; }
        void rest(int fd);
        /// Milliseconds that `fd` is still let alone; 0 for any but the resting one.
        std::int64_t rest_left(int fd) const;

      private:
        int last_error_ = 0;
        int resting_fd_ = -1;
        Atime rests_until_;
    };

    /// What `select` has found.
    struct Ready {
        bool requests = false;
        bool output = false;
        bool input = false;
    };

    Ready wait();
    bool descriptors_are_good() const;
    void handle_failed_select(int error);
    void hold_off() const;
    bool bytes_are_queued() const;

    bool take_requests();
    void announce_when_quiet();
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
