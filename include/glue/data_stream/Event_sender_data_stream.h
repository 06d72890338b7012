#pragma once

#include <glue/data_stream/Data_stream.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

class module_man;
class waiter_descriptor;

/// A stream that notifies when bytes were received and when writing may continue: the base of every transport that
/// receives in a thread of its own, and of the two ends of a virtual pair.
///
/// The application registers a waiter of its event loop; the stream sends it an event, whose source is the stream's
/// module id, whenever bytes were received. At most one waiter is notified of received bytes, and one of free space.
///
///     stream->reg_rx_waiter(&my_loop_waiter, false);
///     ...                                            // in the loop, for an event of this stream:
///     while (stream->bytes_avail() != 0)
///         read_message(*stream);
///
/// **Ownership.** The application owns the waiters. Destroying the stream destroys its callback and notifies nobody:
/// deregister first. A waiter is deregistered before it is destroyed.
///
/// **Threads.** Registration runs under `lock()`. A stream with a thread of its own sends its events under the same
/// lock. A thread that holds it must not register, deregister or call `init`.
class GLUE_EXPORT Event_sender_data_stream : public virtual Data_stream {
  public:
    /// Codes of the events.
    enum event_code {
        rx_event = 0,      ///< bytes were received
        rx_full_event = 1, ///< bytes were received and the receive side is full
        tx_event = 2,      ///< bytes were sent; writing may continue
        tx_flag_event = 3, ///< the same with the sender's flag; each stream defines what the flag means
    };

    /// \param modules  gives the stream its module id; null leaves that to a later `init`. Until then the stream works,
    ///                 but the source of its events is module 0
    explicit Event_sender_data_stream(module_man* modules);

    // Virtual operations: their order is part of the binary interface.

    ~Event_sender_data_stream() override;

    /// Gives the stream a module id, a new one each time it is called.
    virtual void init(module_man& modules);

    // The lock that keeps registration and the sending of events apart. These do nothing; `Pushed_data_stream`
    // overrides them. With these two the class is a BasicLockable, for `std::lock_guard`.

    virtual void lock();
    virtual void unlock();

    /// Notifies of received bytes: runs the callback, then sends the rx waiter `rx_full_event` when `full`, else
    /// `rx_event` unless the waiter is registered as quiet. Virtual, as an addition of ours, for streams that delay
    /// notifications; so it follows the three operations above.
    virtual void send_rx_event(bool full);

    /// Notifies that writing may continue: sends the tx waiter `tx_flag_event` when `flag`, else `tx_event` unless the
    /// waiter is registered as quiet.
    void send_tx_event(bool flag);

    // ---- Registration ----

    // One waiter each is notified: registering replaces the previous one. A quiet waiter gets only the codes
    // 1 and 3.

    void reg_rx_waiter(waiter_descriptor* waiter, bool quiet);
    /// Returns after the notification in progress, unless it is called within one: the waiter may then be destroyed.
    /// The same holds for the replaced waiter when another one is registered.
    void dereg_rx_waiter();
    void reg_tx_waiter(waiter_descriptor* waiter, bool quiet);
    void dereg_tx_waiter();

    /// The registered waiter; null when there is none.
    waiter_descriptor* get_rx_waiter() const { return rx_waiter_; }
    waiter_descriptor* get_tx_waiter() const { return tx_waiter_; }

    /// Sets what `send_rx_event` runs first, also with a quiet waiter or none; empty: nothing. The previous callback is
    /// destroyed.
    ///
    /// It runs in the thread that notifies, in most streams while that thread holds the stream's lock: it must be short
    /// and must not use the stream. Acquires no lock: set it before bytes can be received. It must not replace itself.
    void set_rx_callback(std::function<void()> callback);

    // ---- Additions of ours, for programs that serve every kind of stream ----

    /// Makes the stream receive and send nothing until `resume()`, so that its peer waits. Not every kind can.
    /// \return whether the stream pauses; false here
    virtual bool pause();
    /// Ends a pause. Does nothing here.
    virtual void resume();

    /// Whether no more bytes will be received; bytes that were received earlier may still be unread. False here: a line
    /// or a connection may return. Not to be called while holding the stream's lock.
    virtual bool has_ended();

    /// Whether the stream logs its traffic itself when `set_port_logging` asks for it. False here.
    virtual bool traces_itself() const;

  private:
    void send(waiter_descriptor& waiter, event_code code, bool urgent, bool merge) const;
    void wait_for_notification();

    // Atomic because some streams notify without holding lock().
    std::atomic<std::int16_t> module_id_;
    std::atomic<waiter_descriptor*> rx_waiter_;
    std::atomic<waiter_descriptor*> tx_waiter_;
    std::atomic<bool> rx_quiet_;
    std::atomic<bool> tx_quiet_;
    std::function<void()> rx_callback_;
    std::recursive_mutex notification_; ///< held from the reading of a waiter's address to the end of its notification
};
