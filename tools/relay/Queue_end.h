#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <memory>
#include <utility>

/// One of two streams back to back inside the process: what is written to one is received by the other.
///
/// Neither waits: a write takes what fits into the other end's receive ring, or, at an end that keeps writes whole,
/// nothing unless all of it fits.
class Queue_end : public Event_sender_data_stream {
  public:
    enum Writes {
        take_what_fits,
        whole, ///< and one more byte still fits: the line feed that a framing adapter writes behind each frame
    };

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
    unsigned int receive(const unsigned char* data, unsigned int len, Writes how);

    const Writes writes_;
    Queue_end* other_ = nullptr;
    Mutex mutex_;
};
