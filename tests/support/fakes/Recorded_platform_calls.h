#pragma once

#include <functional>
#include <string>
#include <vector>

/// Keeps, while it lives, the arguments of calls to the platform layer whose meaning is the maker's, and which the
/// reference platform therefore shows no effect of. The calls go through all the same. For one thread.
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

    std::vector<Send> sends;             ///< `waiter_descriptor::send_event`, call by call
    std::function<void()> before_send;   ///< called before each of them goes through
    std::vector<bool> permanent_modules; ///< `module_man::init_module`, call by call
    int failed_init_module = 0;          ///< what `init_module` returns, without an id; 0: it goes through
    std::vector<Loop> loops;             ///< `Diner::init`, call by call
    std::vector<Loop_end> loop_ends;     ///< `Diner::terminate`, call by call
};
