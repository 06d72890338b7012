#pragma once

#include <glue/data_stream/Capped_semaphore.h>
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Pushed_data_stream.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <thread>

/// The asynchronous stream over file descriptors: a reader thread moves received bytes into the receive ring and sends
/// events. With write buffering on it also sends what the descriptor did not accept at once, so that
/// writers do not wait for a slow device (open the device non-blocking for that).
///
///     Posix_threaded_data_stream line("DSPosT");
///     line.reg_rx_waiter(&my_loop_waiter, false);
///     if (line.open("/dev/ttyS1", false, false, false)) {   // starts the reader thread
///         line.set_write_buffering(true);
///         line.printf("VER\r\n");
///     }
///
/// **Ownership** of descriptors is that of Posix_data_stream. The thread uses the stream's virtual operations.
/// Therefore the destructor of every derived class calls `stop()` first, before its members are destroyed; the
/// destructor here stops the thread, too, before it closes the descriptors. Stopping is prompt, also when the
/// thread is paused or the ring is full. Only a callback that does not return, or a blocking descriptor that is ready
/// but blocks a write, delays it.
///
/// **Threads.** `lock()` guards the receive ring and is held while events are sent, the rx callback included; a
/// callback that reads its own stream takes the lock twice, which aborts. A callback, or `handle_close`, runs in the
/// reader thread, which cannot wait for its own end: `stop()` there does nothing, and destroying the stream there ends
/// the process. Any thread may read, write and open while the reader thread runs. But to replace or close a descriptor
/// that the reader thread or a writer uses, stop both first, or do it in `handle_close`.
///
/// **Failures** are printed on standard error and survived: only `stop()` ends the thread. A descriptor that repeats
/// a failure is reported once and tried ten times a second. A descriptor at its end of file is also tried ten times a
/// second, since more bytes may follow (a FIFO without a writer, for example). A line that is gone (EIO, ENODEV, ENXIO)
/// is at its end of file. Descriptors of FD_SETSIZE (1024) and above are never read, nor are their queued bytes sent;
/// each stream reports the first one.
class GLUE_EXPORT Posix_threaded_data_stream : public Posix_data_stream, public Pushed_data_stream {
  public:
    /// Bytes that the transmit ring holds.
    static constexpr unsigned tx_capacity = 4200;

    /// A closed stream without a thread. `prefix` is the class word of the description; not copied.
    ///
    /// Needs two descriptors for the notification pipe. Without them it prints a message on standard error and
    /// works without the pipe: requests then take up to 100 ms to reach the thread, and `pause` does nothing.
    explicit Posix_threaded_data_stream(const char* prefix);
    /// Stops the thread; closes the pipe and the descriptors. What the transmit ring holds is lost.
    ~Posix_threaded_data_stream() override;

    // ---- Opening by name ----
    //
    // As Posix_data_stream. Success starts the thread, or makes a running one use the new descriptor.

    [[nodiscard]] bool open(const char* path, bool create, bool blocking, bool append) override;
    [[nodiscard]] bool open_read(const char* path, bool blocking) override;
    [[nodiscard]] bool open_write(const char* path, bool create, bool blocking, bool append) override;

    using Posix_data_stream::get_data;
    /// Nothing can be fetched: the thread moves all input into the ring. \return true only for an `n` of 0
    int get_data(int n) override;

    /// Without write buffering: writes as Posix_data_stream and returns its result.
    ///
    /// With it: writes at once what the descriptor accepts, unless earlier bytes are queued. Queues as much of the rest
    /// as fits the transmit ring; what does not fit is lost. \return the bytes written at once. On purpose, queued
    /// bytes are not counted, and an error counts as 0.
    int _write(const unsigned char* data, unsigned int len) override;

    // Virtual operations: their order is part of the binary interface.

    /// Makes the thread read and send nothing until `resume()`. The pause begins when the thread next handles requests,
    /// usually at once. Writers continue, into the transmit ring if write buffering is on.
    /// \return true, also when the thread could not be notified
    bool pause() override;
    /// Ends the pause. On purpose, it is remembered: a `resume` without a pause ends the next pause at once.
    void resume() override;

    /// Whether to queue what cannot be written at once (off at first). When it is switched off, queued bytes stay
    /// queued until it is on again; bytes written meanwhile overtake them.
    virtual void set_write_buffering(bool on);

    /// Selects the traffic to log. Tags: "RD" received; "WRPRE" passed to a write, "WRGPRE" to `write_tarve`; "WR"
    /// written at once; "WRB" sent from the transmit ring.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;

    /// Called by the thread, without a lock, when the reading descriptor is at its end of file. Does nothing here; a
    /// derived class may close and reopen. When the descriptor stays, it is called again 100 ms later.
    virtual void handle_close();

    /// The lock of the receive ring, of registration and of events.
    void lock() override;
    void unlock() override;

    /// With an rx event time-out, a plain event and its callback are delayed until the input has been quiet
    /// for that time. A full event is sent at once; a delayed plain event stays pending.
    void send_rx_event(bool full) override;

    // ---- The thread ----

    /// Starts the thread when there is none. Opening does it; for classes that set the descriptors themselves.
    void start();
    /// Ends the thread, when there is one, and waits for its end. Also ends a pause. Bytes in both rings stay.
    /// Does nothing when called by the thread itself.
    void stop();

    /// How long the input must be quiet before the plain event is sent, in milliseconds; 0, as at first, sends it at
    /// once.
    void set_rx_event_timeout(unsigned int ms);

    // ---- More ways to write ----

    /// What both `_write` and `write_packet` do.
    /// \param packet  whether this is a packet
    int _write(const unsigned char* data, unsigned int len, bool packet);

    /// Writes a packet, which must not be sent in part: when the part that cannot be written at once does not fit the
    /// transmit ring, nothing of that part is queued. \return as `_write`; 0 when the rest was dropped
    int write_packet(const unsigned char* data, unsigned int len);

    /// Writes a command to a receiver, as `_write`. When there is congestion it waits up to about a second for free
    /// space in the transmit ring, without a lock, or drops the rest: see `waits_when_congested`. Each wait is reported
    /// through the debug printer. \return whether anything was written at once; false also when all of it was queued
    bool write_tarve(const unsigned char* data, unsigned int len);

    /// Whether `write_tarve` waits for free space for this rest of a command, or drops it. It drops a framed
    /// receiver message that is not a reply ("RE", "ER"), and a "$" sentence of up to 100 bytes. It waits for
    /// everything else.
    static bool waits_when_congested(const unsigned char* rest, unsigned int count);

  protected:
    /// Wakes the thread, so that it checks the descriptors and the transmit ring again.
    /// \return whether it could be notified
    bool wake();

    /// Addition: held shared while a descriptor is read or written. A class that closes a descriptor while its thread
    /// or a writer is running closes it under the exclusive lock: then no thread reads or writes the next file with
    /// that number. Operations that read or write, as `_write` does, hold it already and must not be called under it.
    std::shared_mutex descriptor_use;

    // ---- A timer, for classes whose thread has later work: an addition ----

    /// Makes the thread call `handle_timer`, once, in `ms` milliseconds, or after the end of a pause if that is later;
    /// replaces an earlier setting. Any thread may call it.
    void set_timer(int ms);

    /// Called by the thread, without a lock. Does nothing here.
    virtual void handle_timer();

  public:
    bool traces_itself() const override { return true; }

  private:
    class Reader;

    bool run_when(bool opened);
    bool in_reader_thread() const;
    static void reader_tasker(Posix_threaded_data_stream* stream);
    void reader_task();
    bool notify(char command) const;
    void forget_requests();

    int write_unbuffered(const unsigned char* data, unsigned int len);
    unsigned int write_at_once(const unsigned char* data, unsigned int len);
    void notify_of_queued_bytes();
    unsigned int free_transmit_space();
    void queue_when_it_fits(const unsigned char* data, unsigned int len);
    void log_port(data_stream_logging_t direction, const char* tag, const unsigned char* data, unsigned int len) const;

    char short_name_[5];
    std::shared_ptr<std::thread> reader_thread_;
    Mutex stream_lock_;
    int notify_pipe_[2];
    Capped_semaphore pause_gate_;
    Cbuf_templ<unsigned char> tx_ring_;
    unsigned char tx_storage_[tx_capacity];
    Mutex tx_lock_;
    std::atomic<std::uint32_t> rx_event_timeout_ms_;
    std::atomic<bool> rx_event_pending_;
    std::atomic<bool> write_buffering_;
    std::atomic<int> port_logging_;

    // Additions
    Mutex thread_lock_;                   ///< guards reader_thread_
    std::atomic<bool> stopping_;          ///< the thread must return
    std::atomic<bool> wake_pending_;      ///< the pipe holds a wake-up; one is enough
    std::atomic<std::int64_t> timer_due_; ///< in units of Atime; negative when the timer is not set
};
