#pragma once

#include <glue/data_stream/Capped_semaphore.h>
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Pushed_data_stream.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <thread>

/// The asynchronous stream over file descriptors: a reader thread moves what arrives into the receive ring and
/// announces it with events; with write buffering on it also sends what the descriptor would not take at once, so that
/// writers do not wait for a slow device (open it non-blocking for that).
///
///     Posix_threaded_data_stream line("DSPosT");
///     line.reg_rx_waiter(&my_loop_waiter, false);
///     if (line.open("/dev/ttyS1", false, false, false)) {   // starts the reader thread
///         line.set_write_buffering(true);
///         line.printf("VER\r\n");
///     }
///
/// **Ownership** of descriptors is that of Posix_data_stream. The thread uses the stream's virtual operations, so
/// the destructor of every class derived from this one calls `stop()` first, before any of its members goes; the
/// destructor here stops the thread, too, before it closes the descriptors. Stopping does not take long, whether the
/// thread waits, is paused or finds the ring full; only a callback that does not return, or a blocking descriptor that
/// does not take what it has announced room for, holds it up.
///
/// **Threads.** `lock()` guards the receive ring and is held while events are sent, the rx callback included; one that
/// reads its own stream takes the lock twice, which aborts. A callback, or `handle_close`, runs in the reader thread,
/// which cannot wait for its own end: `stop()` there is refused, and destroying the stream there ends the process.
/// Reading and writing may be done by any thread while the reader thread runs. Opening may, too; but whoever replaces
/// or closes a descriptor that the thread or a writer is using stops both before, or does it from `handle_close`.
///
/// **Failures** are printed on standard error and survived: the thread ends on `stop()` alone. A descriptor that fails
/// in the same way again and again is reported once and asked ten times a second; so is one at its end of file, where
/// more may come (a FIFO without a writer, for one). A line that is gone (EIO, ENODEV, ENXIO) is at its end of file.
/// Descriptors of FD_SETSIZE (1024) and above are never read, nor is their write buffer sent.
class GLUE_EXPORT Posix_threaded_data_stream : public Posix_data_stream, public Pushed_data_stream {
  public:
    /// Bytes that the transmit ring holds.
    static constexpr unsigned tx_capacity = 4200;

    /// A closed stream without a thread. `prefix` is the class word of the description; not copied.
    ///
    /// Needs two descriptors of its own, the notification pipe. When there are none it says so on standard error and
    /// works without: what wakes the thread otherwise takes up to 100 ms then, and `pause` does nothing.
    explicit Posix_threaded_data_stream(const char* prefix);
    /// Stops the thread; closes the pipe and the descriptors. What the transmit ring holds is lost.
    ~Posix_threaded_data_stream() override;

    // Opening by name: as Posix_data_stream. Success starts the thread, or shows it the new descriptor.

    bool open(const char* path, bool create, bool blocking, bool append) override;
    bool open_read(const char* path, bool blocking) override;
    bool open_write(const char* path, bool create, bool blocking, bool append) override;

    using Posix_data_stream::get_data;
    /// Input arrives through the thread alone: nothing can be fetched. \return true only for an `n` of 0
    int get_data(int n) override;

    /// Without write buffering: writes as Posix_data_stream and returns its result.
    ///
    /// With it: writes at once what the descriptor takes, unless earlier bytes wait, and queues of the rest what fits
    /// the transmit ring; what does not is lost.
    /// \return the bytes written at once. On purpose, queued bytes are not counted, and an error counts as 0.
    int _write(const unsigned char* data, unsigned int len) override;

    // Virtual operations: their order is part of the binary interface.

    /// Has the thread read and send nothing until `resume()`; it stops when it next looks, usually at once. Writers go
    /// on, into the transmit ring if it is on. \return true, also when the thread could not be told
    bool pause() override;
    /// Lets the thread go on. On purpose, it is counted: a `resume` without a pause ends the next pause at once.
    void resume() override;

    /// Queue what cannot be written at once (off at first). Switching it off leaves queued bytes where they are until
    /// it is on again; what is written meanwhile overtakes them.
    virtual void set_write_buffering(bool on);

    /// What to log of the traffic. Tags: "RD" received; "WRPRE" handed to a write, "WRGPRE" to `write_tarve`; "WR"
    /// written at once; "WRB" sent from the transmit ring. Neither open nor rename the stream while it logs.
    /// \return 0
    int set_port_logging(data_stream_logging_t flags) override;

    /// Called by the thread, holding no lock, when the reading descriptor is at its end of file. Does nothing here; a
    /// class that knows how closes and opens anew. When the descriptor stays, it is called again 100 ms later.
    virtual void handle_close();

    /// The lock of the receive ring, of registration and of events.
    void lock() override;
    void unlock() override;

    /// With an rx event time-out a plain announcement, callback included, is held back until the input has been quiet
    /// for so long; a full one goes out at once and leaves the pending one pending.
    void send_rx_event(bool full) override;

    // ---- The thread ----

    /// Starts the thread when there is none. For classes that set the descriptors themselves; opening does it.
    void start();
    /// Ends the thread and waits for that, when there is one; a pause ends with it. Bytes in both rings stay.
    /// Does nothing when called by the thread itself.
    void stop();

    /// How long the input must be quiet before received bytes are announced, in milliseconds; 0, as at first, announces
    /// them at once.
    void set_rx_event_timeout(unsigned int ms);

    // ---- More ways to write ----

    /// `_write` of something that must not arrive in part: when what cannot be written at once does not fit the
    /// transmit ring, nothing of it is queued. \return as `_write`; 0 when it was dropped
    int write_packet(const unsigned char* data, unsigned int len);

    /// `_write` of a command to a receiver. When there is congestion it waits up to about a second for room in the
    /// transmit ring, holding no lock, or drops what cannot wait: see `waits_when_congested`. Each wait is
    /// reported through the debug printer.
    /// \return whether anything was written at once; false also when all of it was queued
    bool write_tarve(const unsigned char* data, unsigned int len);

    /// Whether `write_tarve` waits for room for this rest of a command, or drops it: it waits for a framed
    /// receiver message only when that is a reply ("RE", "ER"), and does not wait for "$" sentences of up to 100 bytes;
    /// everything else is waited for.
    static bool waits_when_congested(const unsigned char* rest, unsigned int count);

  protected:
    /// Wakes the thread, to look at the descriptors and the transmit ring anew. \return whether it could be told
    bool wake();

    /// Addition: held shared while a descriptor is read or written, so that a class which closes one while its thread
    /// or a writer goes on closes it under the exclusive lock: nobody then reads or writes what got the number next.
    /// Not to be asked for by who reads or writes, as `_write` does.
    std::shared_mutex descriptor_use;

    // A timer, for classes whose thread has something to do later. An addition.

    /// Has the thread call `handle_timer`, once, in `ms` milliseconds, or after the end of a pause if that comes later;
    /// replaces what was set before. May be called by any thread.
    void set_timer(int ms);

    /// Called by the thread, holding no lock. Does nothing here.
    virtual void handle_timer();

  public:
    bool traces_itself() const override { return true; }

  private:
    class Reader;
    enum class Delivery { as_much_as_fits, whole_or_nothing };

    bool run_when(bool opened);
    bool in_reader_thread() const;
    static void reader_tasker(Posix_threaded_data_stream* stream);
    void reader_task();
    bool notify(char command) const;
    void forget_requests();

    int _write(const unsigned char* data, unsigned int len, Delivery delivery);
    int write_unbuffered(const unsigned char* data, unsigned int len);
    unsigned int write_at_once(const unsigned char* data, unsigned int len);
    void tell_of_queued_bytes();
    unsigned int transmit_room();
    void queue_when_there_is_room(const unsigned char* data, unsigned int len);
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
    Mutex thread_lock_;                   ///< guards reader_thread
    std::atomic<bool> stopping_;          ///< the thread shall return
    std::atomic<bool> wake_on_way_;       ///< a wake-up lies in the pipe: one is as good as many
    std::atomic<std::int64_t> timer_due_; ///< in units of Atime; negative when the timer is not set
};
