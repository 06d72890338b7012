#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/waiter.h>

#include <cstddef>
#include <memory>
#include <mutex>

/// One end of a channel, used in the same way whatever kind of stream it is: a thread that writes, a thread that reads.
class Stream_end {
  public:
    /// What a kind asks of those who use it.
    struct Manners {
        bool one_thread = false;     ///< reading and writing must not happen at the same time
        bool piece_by_piece = false; ///< the next piece is written when the last one has arrived
        bool queues = false;         ///< what a write queues is not in its result
        unsigned longest_piece = 6000;
    };

    Stream_end(std::shared_ptr<Data_stream> stream, Manners manners);
    ~Stream_end();
    Stream_end(const Stream_end&) = delete;
    Stream_end& operator=(const Stream_end&) = delete;

    const Manners& manners() const { return manners_; }
    /// The stream, if it receives in a thread of its own: then a relay can move its bytes. Null if it fetches.
    Event_sender_data_stream* receiving_stream() const;

    /// Writes what can be written at once. \return how much that was
    std::size_t write(const unsigned char* bytes, std::size_t count);
    /// Takes what has arrived, at most `room` bytes. \return how many; 0 when nothing has
    std::size_t read(unsigned char* destination, std::size_t room);

    /// Waits for a change of what can be read or written; not long, for not every kind tells.
    void wait_for_bytes();
    void wait_for_room();

  private:
    std::unique_lock<std::mutex> turn();

    const Manners manners_;
    std::mutex turn_;
    waiter_descriptor waiter_;
    std::shared_ptr<Data_stream> stream_;
    Event_sender_data_stream* sender_;
};
