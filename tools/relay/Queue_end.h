#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <memory>
#include <utility>

/// One of two connected streams inside the process: the bytes that are written to one are received by the other.
///
/// Neither waits: a write appends what fits to the other end's receive ring. An end for frames, which a framing adapter
/// writes with a line feed of its own after each, accepts a frame and its line feed whole, or neither.
///
/// **Threads.** Each end has one thread that writes to it, and any number that read from it.
class Queue_end : public Pushed_data_stream {
  public:
    enum Writes { what_fits, whole_frames };

    using Pair = std::pair<std::unique_ptr<Queue_end>, std::unique_ptr<Queue_end>>;
    /// Two ends. An end must not be written to after the other one is destroyed.
    static Pair make_pair(Writes of_first, Writes of_second);

    using Data_stream::get_data;
    /// Nothing can be fetched: bytes arrive by themselves. \return 1 for an `n` of 0, else 0
    int get_data(int n) override;
    /// \return the bytes accepted
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    explicit Queue_end(Writes writes);
    unsigned int receive(const unsigned char* data, unsigned int len);
    unsigned int receive_whole(const unsigned char* data, unsigned int len);
    unsigned int free_space();

    const Writes writes_;
    Queue_end* other_ = nullptr;
    bool refused_frame_ = false; ///< its line feed, the next write, is refused too
    Mutex mutex_;
};
