#pragma once

#include <glue/data_stream/Capped_semaphore.h>
#include <glue/data_stream/Event_sender_data_stream.h>

#include <cstdint>
#include <mutex>

/// One end of a `Virtual_pair_data_stream`: the bytes written to it are read from the other end.
///
/// For each direction there is a transfer ring of `transfer_capacity` bytes between the two; a writer that finds it
/// full waits for the reader, a reader that finds it empty waits for the writer. Reading moves bytes from the transfer
/// ring into the end's own receive ring.
///
/// The events of an end: an rx event at the end of each write of the other end (code 1 when the transfer ring is full
/// then), a tx event when the other end has fetched (code 3 when the transfer ring is empty then).
///
/// **Threads.** One thread reads from an end while another writes to it; any thread may register and set time-outs.
/// Both ends share one lock, which no thread holds while it waits. It is held while events are sent: an rx callback may
/// set a flag, wake a thread or send to waiters, but must not use either end of the pair in any way, because that would
/// acquire the lock again and abort the process.
///
/// **Large writes.** A write that does not fit wakes a waiting reader each time before it waits, but sends the rx event
/// only once, at its end, and none at all when its wait fails. A reader that relies on events alone is notified in time
/// only of a write that fits the transfer ring.
class GLUE_EXPORT Virtual_pair_data_stream_part : public Event_sender_data_stream {
  public:
    static constexpr int default_timeout_ms = 100000;
    /// Bytes in transfer in one direction.
    static constexpr unsigned transfer_capacity = 128;

    /// \param modules   gives the end its module id; may be null
    /// \param other_end the peer; need not be constructed yet
    /// \param lock_of_both  guards both ends; outlives them
    Virtual_pair_data_stream_part(module_man* modules, Virtual_pair_data_stream_part& other_end, Mutex& lock_of_both);
    ~Virtual_pair_data_stream_part() override;

    /// The lock of the pair.
    void lock() override;
    void unlock() override;

    /// Drops the bytes that the other end has written and this one has not fetched. Leaves the receive ring unchanged
    /// and wakes no writer: the next fetch does.
    void flush() override;

    // Time-outs in milliseconds, `default_timeout_ms` at construction; 0 or less means not to wait. A wait lasts a
    // multiple of 10 ms: the rest of the time-out, rounded down. All return true.

    int set_read_timeout(int ms) override;
    int set_default_read_timeout() override;
    int set_write_timeout(int ms) override;
    int set_default_write_timeout() override;

    using Data_stream::get_data;

    /// Moves `n` bytes from the other end into the receive ring, waiting for them until the read time-out; bytes that
    /// do not fit the receive ring are lost. Sends the other end's tx event, unless a wait failed.
    /// \return whether all `n` were moved; those that were are in the ring. An `n` of 0 or less moves nothing: true for
    ///         0, false for less
    int get_data(int n) override;

    /// Transfers `len` bytes to the other end, waiting for free space until the write time-out. Sends the other end's
    /// rx event when bytes were accepted, unless a wait failed.
    /// \return the bytes accepted
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    using Lock = std::unique_lock<Mutex>;

    static bool wait_for(Capped_semaphore& permit, std::int64_t ms, Lock& held);
    unsigned int fetch_some(unsigned int most);
    int store(std::int32_t& timeout, int ms);

    std::int32_t read_timeout_ms_;
    std::int32_t write_timeout_ms_;
    Cbuf_templ<unsigned char> transfer_ring_; ///< written by the other end, read by this one
    unsigned char transfer_storage_[transfer_capacity];
    Virtual_pair_data_stream_part& peer_;
    Mutex& pair_lock_;
    Capped_semaphore data_ready_;  ///< the other end has written
    Capped_semaphore space_ready_; ///< the other end has fetched
};

/// Two connected streams, for two parts of one process that communicate as over a line.
///
///     Virtual_pair_data_stream line(&modules);
///     std::thread device([&] { simulate_receiver(line.part_b()); });
///     configure_receiver(line.part_a());
///
/// **Ownership.** The pair is one object, which owns both ends. No thread may be inside either when it is destroyed.
class GLUE_EXPORT Virtual_pair_data_stream {
  public:
    /// \param modules  gives both ends their module ids; may be null
    explicit Virtual_pair_data_stream(module_man* modules);
    Virtual_pair_data_stream(const Virtual_pair_data_stream&) = delete;
    Virtual_pair_data_stream& operator=(const Virtual_pair_data_stream&) = delete;

    Virtual_pair_data_stream_part& part_a() { return a_; }
    Virtual_pair_data_stream_part& part_b() { return b_; }

  private:
    Mutex pair_lock_; // first: both ends use it
    Virtual_pair_data_stream_part a_;
    Virtual_pair_data_stream_part b_;
};
