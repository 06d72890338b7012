#pragma once

#include <glue/vesk/TIM_messages.h>

namespace simulator {

/// The controller that steers the machine, as its status and command messages show it.
///
/// The last command decides the state:
///
///     ready off                                NOT_READY, as at first
///     ready on                                 READY_TO_ENABLED
///     ready on, request 0                      ENABLED
///     ready on, request 0 and request 1        ACTIVE: the curvature is the command's
///
/// The product flag is that of the last command. The other requests have no effect, and a command never expires.
class Automation {
  public:
    static constexpr unsigned enable_request = 0;
    static constexpr unsigned steer_request = 1;

    void obey(const TIM_messages::Msg_GC& command);

    /// Fills in the next status. Its heartbeat is the previous one plus 1.
    /// \param curvature  of the machine's path, used unless the automation steers
    void report(TIM_messages::Msg_GS& status, double curvature);

    TIM_messages::Automation_state state() const { return state_; }
    bool is_active() const { return state_ == TIM_messages::automation_active; }

  private:
    TIM_messages::Automation_state state_ = TIM_messages::automation_not_ready;
    bool prod_ = false;
    float wanted_curvature_ = 0;
    unsigned char heart_ = 0;
};

} // namespace simulator
