#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

/// A stream whose receive ring a thread of its own fills: the base of the TCP, process and threaded descriptor streams
/// and of the AIM adapter. `lock()` acquires the mutex that guards the ring.
///
/// A derived class owns that mutex and names it to the constructor:
///
///     class My_stream : public Pushed_data_stream {
///       public:
///         My_stream() : Pushed_data_stream(nullptr, mutex_) {}
///         int get_data(int n) override { return fetch_nothing(n); }
///         ...
///       private:
///         Mutex mutex_;
///     };
class GLUE_EXPORT Pushed_data_stream : public Event_sender_data_stream {
  public:
    /// \param modules    as for `Event_sender_data_stream`
    /// \param ring_lock  becomes the `buffer_lock`; a member of the derived class, which need not be constructed yet
    Pushed_data_stream(module_man* modules, Mutex& ring_lock);
    ~Pushed_data_stream() override;

    // The `buffer_lock`. It also keeps registration and the sending of events apart.

    void lock() override;
    void unlock() override;
};
