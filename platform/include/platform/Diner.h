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

/// For makers whose loops wait for descriptors as well as for events. The loop here waits for events and timeouts only,
/// and uses no selector.
class Diner_selector;

/// An event loop with its own thread: it waits for the events that others send to its `waiter` and for its timeouts,
/// and handles them one at a time.
///
///     class Watcher : public Diner {
///       public:
///         Watcher(module_man& modules, Event_sender_data_stream& stream) {
///             init(modules, nullptr, Descriptor("WATCH", 0), 44, 25600, true, false);
///             stream.reg_rx_waiter(&waiter, false);
///             start();
///         }
///         ~Watcher() override { terminate(true, 1000); }    // first: no handler uses members that are destroyed
///         void handle_event(waiter_event& event) override;
///         void handle_timeout(Timeout& timeout) override;
///     };
///
/// A derived class ends the loop at the very start of its own destructor, as above. Until then handlers run in the
/// loop's thread. After `terminate` has waited, no handler runs, and later events stay in the waiter until the loop is
/// destroyed. Every sender must be destroyed or deregistered before the loop is destroyed.
class Diner {
  public:
    /// The name of a loop, and of its thread: "ADSA" with the index 0 gives "vro.ADSA0".
    struct Descriptor {
        Descriptor(const char* name, int index);

        char name[20]; ///< cut to fit
        int index;
    };

    Diner();
    Diner(const Diner&) = delete;
    Diner& operator=(const Diner&) = delete;
    /// Ends a loop that is still running. For the handlers of a derived class that is too late.
    virtual ~Diner();

    // ---- Life cycle: init, start, terminate, once each ----

    /// Assigns the waiter its module id and prepares the thread.
    /// \param selector  for makers; may be null
    /// \param priority, stack_size  of the thread, for makers; no effect here
    /// \param option_a, option_b  for makers; no effect here
    void init(module_man& modules, Diner_selector* selector, const Descriptor& descriptor, int priority, int stack_size,
              bool option_a, bool option_b);

    /// Starts the loop. Events that were sent before are handled first.
    /// \return false when the loop does not run; with a message when the system could not create a thread
    bool start();

    /// Ends the loop after the handler in progress, if any. Waiting events are no longer handled.
    ///
    /// No thread is ever ended by force: a handler that runs for more than `units` is reported once, and the wait
    /// continues. Called from a handler, it does not wait: the loop ends when the handler returns.
    /// \param wait  whether to return only when the loop has ended
    void terminate(bool wait, int units);

    // ---- Virtual operations ----

    /// Handles an event. Its payload is freed afterwards; set it to null to keep it.
    virtual void handle_event(waiter_event& event) = 0;
    /// Handles a timeout that has expired; the handler may set it again.
    virtual void handle_timeout(Timeout& timeout) = 0;
    /// Whether no handler can run in parallel to the caller: it is the loop's own thread, or the loop does not run.
    virtual bool is_locked() const;

  protected:
    /// The body of the loop's thread; returns when the loop is to end.
    virtual void run_main_loop();
    /// Called in the loop's thread before its first handler and after its last. Do nothing here.
    virtual void diner_start();
    virtual void diner_stop();

    /// Handles the first of the timeouts that are due; the others follow one by one, after the next event.
    virtual void handle_timeout();
    /// When the first timeout expires; nothing when none is set.
    virtual std::optional<Atime> next_timeout() const;

    /// The queue to which others send their events.
    waiter_descriptor waiter;

  private:
    friend class Timeout;
    enum class State { idle, running, ending, ended };

    static void* enter(void* self);
    bool is_ending() const;
    void handle_next_event();
    void wake();
    bool is_wake_event(const waiter_event& event) const;

    void set(Timeout& timeout, int units);
    void cancel(Timeout& timeout);
    void insert(Timeout& timeout);
    void remove(Timeout& timeout);

    std::optional<Task> task_;
    int priority_;

    mutable std::mutex mutex_; // guards the members below and the list of timeouts; not held while a handler runs
    std::condition_variable loop_ended_;
    State state_;
    std::thread::id thread_;
    Timeout* first_timeout_;
};
