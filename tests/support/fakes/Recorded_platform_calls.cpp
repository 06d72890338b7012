#include <support/fakes/Recorded_platform_calls.h>

#include <platform/Diner.h>
#include <platform/module_man.h>
#include <platform/waiter.h>

#include <dlfcn.h>

namespace {

Recorded_platform_calls* record = nullptr;

/// The platform's operation, which the test program replaces.
template <typename Operation>
Operation original(const char* symbol) {
    return reinterpret_cast<Operation>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

// Definitions of the test program, which the dynamic linker uses instead of the platform's.

bool waiter_descriptor::send_event(waiter_event& event, bool urgent, bool merge) {
    using Send_event = bool (*)(waiter_descriptor*, waiter_event&, bool, bool);
    static const auto send = original<Send_event>("_ZN17waiter_descriptor10send_eventER12waiter_eventbb");
    if (record)
        record->sends.push_back({urgent, merge});
    if (record && record->before_send)
        record->before_send();
    return send(this, event, urgent, merge);
}

int module_man::init_module(std::int16_t* id, bool permanent) {
    using Init_module = int (*)(module_man*, std::int16_t*, bool);
    static const auto init = original<Init_module>("_ZN10module_man11init_moduleEPsb");
    if (record)
        record->permanent_modules.push_back(permanent);
    if (record && record->failed_init_module != 0)
        return record->failed_init_module;
    return init(this, id, permanent);
}

void Diner::init(module_man& modules, Diner_selector* selector, const Descriptor& descriptor, int priority,
                 int stack_size, bool option_a, bool option_b) {
    using Init = void (*)(Diner*, module_man&, Diner_selector*, const Descriptor&, int, int, bool, bool);
    static const auto init = original<Init>("_ZN5Diner4initER10module_manP14Diner_selectorRKNS_10DescriptorEiibb");
    if (record)
        record->loops.push_back({descriptor.name, selector != nullptr, priority, stack_size, option_a, option_b});
    init(this, modules, selector, descriptor, priority, stack_size, option_a, option_b);
}

void Diner::terminate(bool wait, int units) {
    using Terminate = void (*)(Diner*, bool, int);
    static const auto terminate = original<Terminate>("_ZN5Diner9terminateEbi");
    if (record)
        record->loop_ends.push_back({wait, units});
    terminate(this, wait, units);
}

Recorded_platform_calls::Recorded_platform_calls() {
    record = this;
}

Recorded_platform_calls::~Recorded_platform_calls() {
    record = nullptr;
}
