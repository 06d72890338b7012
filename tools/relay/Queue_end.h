#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <memory>
#include <utility>

/// One of two streams back to back inside the process: what is written to one is received by the other.
///
/// Neither waits: a write takes what fits into the other end's receive ring. At an end for frames, which a framing
/// adapter writes with a line feed of its own behind each, it takes a frame and its line feed whole, or neither.
///
/// **Threads.** Each end has one thread that writes to it, and any that read from it.
class Queue_end : public Event_sender_data_stream {
  public:
    enum Writes { take_what_fits, whole };

    using Pair = std::pair<std::unique_ptr<Queue_end>, std::unique_ptr<Queue_end>>;
    /// Two ends. Nobody writes to one when the other is gone.
    static Pair make_pair(Writes of_first, Writes of_second);

    void lock() override;
    void unlock() override;

    using Data_stream::get_data;
    /// Bytes come by themselves. \return 1 for an `n` of 0, else 0
    int get_data(int n) override;
    /// \return how much was taken
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    explicit Queue_end(Writes writes);
    unsigned int receive(const unsigned char* data, unsigned int len);
    unsigned int receive_whole(const unsigned char* data, unsigned int len);
    unsigned int room();

    const Writes writes_;
    Queue_end* other_ = nullptr;
    bool refused_frame_ = false; ///< and its line feed, which comes next, goes with it
    Mutex mutex_;
};
