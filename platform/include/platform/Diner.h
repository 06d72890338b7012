#pragma once

#include <platform/Atime.h>
#include <platform/Task.h>
#include <platform/waiter.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

class Timeout;
class module_man;

/// For makers whose loops wait for descriptors as well as for events. The loop here waits for events and timeouts only
/// and looks at none.
class Diner_selector;

/// An event loop with a thread of its own: it waits for what others send to its `waiter` and for its timeouts, and
/// handles one at a time.
///
///     class Watcher : public Diner {
///       public:
///         Watcher(module_man& modules, Event_sender_data_stream& stream) {
///             init(modules, nullptr, Descriptor("WATCH", 0), 44, 25600, true, false);
///             stream.reg_rx_waiter(&waiter, false);
///             start();
///         }
///         ~Watcher() override { terminate(true, 1000); }    // first: no handler finds members that are gone
///         void handle_event(waiter_event& event) override;
///         void handle_timeout(Timeout& timeout) override;
///     };
///
/// A class derived from this one ends the loop at the very start of its own destructor, as above. Until then handlers
/// run in the loop's thread; once `terminate` has waited none runs any more, and what is then sent to the waiter stays
/// there until the loop is destroyed. Whoever sends to the waiter must be gone, or be told so, before the loop is.
class Diner {
  public:
    /// Which loop it is. Its thread is named after it: "ADSA" with the index 0 gives "vro.ADSA0".
    struct Descriptor {
        Descriptor(const char* name, int index);

        char name[20]; ///< cut to fit
        int index;
    };

    Diner();
    Diner(const Diner&) = delete;
    Diner& operator=(const Diner&) = delete;
    /// Ends a loop that nobody has ended, which is too late for the handlers of a derived class.
    virtual ~Diner();

    // ---- Life: init, start, terminate, once each ----

    /// Gives the waiter its module id and prepares the thread.
    /// \param selector  the maker's; may be null
    /// \param priority, stack_size  of the thread, for makers; of no effect here
    /// \param option_a, option_b  for makers; of no effect here
    void init(module_man& modules, Diner_selector* selector, const Descriptor& descriptor, int priority, int stack_size,
              bool option_a, bool option_b);

    /// Starts the loop. Events that were sent before are handled first.
    /// \return false, with a message when the system has no thread to give, when the loop does not run
    bool start();

    /// Ends the loop after the handler that runs now, if any. Events that wait are not handled any more.
    ///
    /// No thread is ever ended by force: a handler that runs on for over `units` is reported, once, and waited for
    /// all the same. In the loop's own thread nothing is waited for: the loop ends when the handler returns.
    /// \param wait  whether to return only when the loop has ended
    void terminate(bool wait, int units);

    // ---- Virtual operations ----

    /// Handles what somebody sent. The payload is released when it returns; set it to null to keep it.
    virtual void handle_event(waiter_event& event) = 0;
    /// Handles a timeout that has gone off; it may be set again at once.
    virtual void handle_timeout(Timeout& timeout) = 0;
    /// Whether no handler can run beside the caller: it is the loop's own thread, or the loop does not run.
    virtual bool is_locked() const;

  protected:
    /// The body of the loop's thread; returns when the loop is to end.
    virtual void run_main_loop();
    /// Called in the loop's thread before its first handler and after its last. Nothing here.
    virtual void diner_start();
    virtual void diner_stop();

    /// Handles the first of the timeouts that are due; those that follow have their turn after the next event.
    virtual void handle_timeout();
    /// When the first timeout goes off; nothing when none is set.
    virtual std::optional<Atime> next_timeout() const;

    /// What others send their events to.
    waiter_descriptor waiter;

  private:
    friend class Timeout;
    enum class State { idle, running, ending, ended };

    static void* enter(void* self);
    bool is_ending() const;
    void handle_next_event();
    void wake();
    bool is_wake_call(const waiter_event& event) const;

    void set(Timeout& timeout, int units);
    void cancel(Timeout& timeout);
    void insert(Timeout& timeout);
    void remove(Timeout& timeout);

    std::optional<Task> task_;
    int priority_;

    mutable std::mutex mutex_; // guards what follows; no handler runs under it
    std::condition_variable loop_ended_;
    State state_;
    std::thread::id thread_;
    Timeout* first_timeout_;
};
