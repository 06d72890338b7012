#pragma once

#include <functional>
#include <string>
#include <vector>

/// Records, while it exists, those arguments of calls to the platform layer whose meaning is the maker's: the reference
/// platform ignores them. The calls are forwarded. For one thread.
class Recorded_platform_calls {
  public:
    /// How an event was sent.
    struct Send {
        bool urgent;
        bool merge;
        bool operator==(Send other) const { return urgent == other.urgent && merge == other.merge; }
    };

    /// How an event loop was made.
    struct Loop {
        std::string name;
        bool has_selector;
        int priority;
        int stack_size;
        bool option_a;
        bool option_b;
    };
    /// How it was ended.
    struct Loop_end {
        bool wait;
        int units;
    };

    Recorded_platform_calls();
    ~Recorded_platform_calls();
    Recorded_platform_calls(const Recorded_platform_calls&) = delete;
    Recorded_platform_calls& operator=(const Recorded_platform_calls&) = delete;

    std::vector<Send> sends;             ///< each call of `waiter_descriptor::send_event`
    std::function<void()> before_send;   ///< called before each of them is forwarded
    std::vector<bool> permanent_modules; ///< each call of `module_man::init_module`
    int failed_init_module = 0;          ///< returned by `init_module`, without an id; 0: it is forwarded
    std::vector<Loop> loops;             ///< each call of `Diner::init`
    std::vector<Loop_end> loop_ends;     ///< each call of `Diner::terminate`
};
