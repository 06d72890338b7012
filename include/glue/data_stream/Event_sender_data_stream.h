#pragma once

#include <glue/data_stream/Data_stream.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

class module_man;
class waiter_descriptor;

/// A stream that says when bytes have arrived and when there is room to write again: the base of every transport that
/// receives in a thread of its own, and of the two ends of a virtual pair.
///
/// The application registers a waiter of its event loop; each arrival sends that waiter an event whose source is
/// the stream's module id. At most one waiter is told about arrivals and one about room to write.
///
///     stream->reg_rx_waiter(&my_loop_waiter, false);
///     ...                                            // in the loop, for an event that came from this stream:
///     while (stream->bytes_avail() != 0)
///         take_a_message_from(*stream);
///
/// **Ownership.** The waiters stay the application's. Destroying the stream destroys its callback and tells nobody:
/// deregister first. A waiter is deregistered before it is destroyed.
///
/// **Threads.** Registration runs under `lock()`, which a stream with a thread of its own makes the lock that this
/// thread sends its events under. Who holds that lock must not register, deregister or call `init`.
class GLUE_EXPORT Event_sender_data_stream : public virtual Data_stream {
  public:
    /// Codes of the events.
    enum event_code {
        rx_event = 0,      ///< bytes have arrived
        rx_full_event = 1, ///< bytes have arrived and the receive side is full
        tx_event = 2,      ///< bytes have gone; writing may go on
        tx_flag_event = 3, ///< the same with the sender's flag; each stream says what the flag tells
    };

    /// \param modules  gives the stream its module id; null leaves that to a later `init`, and until then the stream
    ///                 works, but its events come from module 0
    explicit Event_sender_data_stream(module_man* modules);

    // Virtual operations: their order is part of the binary interface.

    ~Event_sender_data_stream() override;

    /// Gives the stream a module id, a new one each time it is called.
    virtual void init(module_man& modules);

    // The lock that keeps registration and the sending of events apart. Nothing to take here. With these two the class
    // is a BasicLockable: std::lock_guard serves.

    virtual void lock();
    virtual void unlock();

    /// Announces received bytes: runs the callback, then tells the rx waiter, `rx_full_event` when `full`, else
    /// `rx_event` unless the waiter is registered as quiet. Virtual, as an addition of ours, for streams that hold
    /// announcements back; so it follows the three operations above.
    virtual void send_rx_event(bool full);

    /// Announces room to write: tells the tx waiter, `tx_flag_event` when `flag`, else `tx_event` unless the waiter is
    /// registered as quiet.
    void send_tx_event(bool flag);

    // Who is told. One waiter each: registering replaces the one before. A quiet waiter gets the codes 1 and 3 only.

    void reg_rx_waiter(waiter_descriptor* waiter, bool quiet);
    /// Returns after the notification in progress, unless it is called within one: the waiter may then be destroyed.
    /// The same holds for the replaced waiter when another one is registered.
    void dereg_rx_waiter();
    void reg_tx_waiter(waiter_descriptor* waiter, bool quiet);
    void dereg_tx_waiter();

    /// The registered waiter; null when there is none.
    waiter_descriptor* get_rx_waiter() const { return rx_waiter_; }
    waiter_descriptor* get_tx_waiter() const { return tx_waiter_; }

    /// Sets what `send_rx_event` runs first, quiet waiter or none; empty for nothing. The former callback is destroyed.
    ///
    /// It runs in the thread that announces, for most streams while that thread holds the stream's lock: it must be
    /// short and must not use the stream. Takes no lock: set it before bytes can arrive. It must not replace itself.
    void set_rx_callback(std::function<void()> callback);

  private:
    void send(waiter_descriptor& waiter, event_code code, bool urgent, bool merge) const;
    void wait_for_notification();

    // Atomic because some streams announce without holding lock().
    std::atomic<std::int16_t> module_id_;
    std::atomic<waiter_descriptor*> rx_waiter_;
    std::atomic<waiter_descriptor*> tx_waiter_;
    std::atomic<bool> rx_quiet_;
    std::atomic<bool> tx_quiet_;
    std::function<void()> rx_callback_;
    std::recursive_mutex notification_; ///< held from the reading of a waiter's address to the end of its notification
};
