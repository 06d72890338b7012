#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/waiter.h>

#include <cstddef>
#include <memory>
#include <mutex>

/// One end of a channel, with the same use for every kind of stream: one thread writes, one thread reads.
class Stream_end {
  public:
    /// How a kind of stream must be used.
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
    /// The stream, if it receives in its own thread: then a relay can forward its bytes. Null if it fetches.
    Event_sender_data_stream* receiving_stream() const;

    /// Writes what can be written at once. \return how many bytes
    std::size_t write(const unsigned char* bytes, std::size_t count);
    /// Reads what has arrived, at most `size` bytes. \return how many; 0 for none
    std::size_t read(unsigned char* destination, std::size_t size);

    /// Wait until bytes can be read or written; only for a short time, because not every kind of stream notifies.
    void wait_for_bytes();
    void wait_for_free_space();

  private:
    std::unique_lock<std::mutex> exclusive_use();

    const Manners manners_;
    std::mutex exclusive_use_;
    waiter_descriptor waiter_;
    std::shared_ptr<Data_stream> stream_;
    Event_sender_data_stream* sender_;
};
