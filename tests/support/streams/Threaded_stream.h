#pragma once

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <atomic>
#include <functional>

/// A threaded stream that adopts descriptors of the test. Its thread does not run yet.
class Threaded_stream : public Posix_threaded_data_stream {
  public:
    explicit Threaded_stream(int reading = -1, int writing = -1) : Posix_threaded_data_stream("DSPosT") {
        use(reading, writing);
    }
    ~Threaded_stream() override { stop(); }

    void use(int reading, int writing) {
        read_fd = reading;
        write_fd = writing;
    }
    void flush() override { ++flushes; }
    void handle_close() override {
        ++ends_of_file;
        if (on_end_of_file)
            on_end_of_file();
    }

    void handle_timer() override {
        ++timers;
        if (on_timer)
            on_timer();
    }

    using Posix_threaded_data_stream::set_timer;
    using Posix_threaded_data_stream::wake;

    std::atomic<int> flushes{0};
    std::atomic<int> ends_of_file{0};
    std::atomic<int> timers{0};
    std::function<void()> on_end_of_file;
    std::function<void()> on_timer;
};
