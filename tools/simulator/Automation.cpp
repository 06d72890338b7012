#include "Automation.h"

namespace simulator {

using namespace TIM_messages;

namespace {

Automation_state state_after(const Msg_GC& command) {
    if (!command.get_ready())
        return automation_not_ready;
    if (!command.get_request(Automation::enable_request))
        return automation_ready_to_enabled;
    return command.get_request(Automation::steer_request) ? automation_active : automation_enabled;
}

} // namespace

void Automation::obey(const Msg_GC& command) {
    state_ = state_after(command);
    prod_ = command.get_prod();
    wanted_curvature_ = command.get_curv();
}

void Automation::report(Msg_GS& status, double curvature) {
    status.set_heart(heart_++);
    status.set_state(state_);
    status.set_prod(prod_);
    status.set_curv(is_active() ? wanted_curvature_ : static_cast<float>(curvature));
}

} // namespace simulator
