// Keeps which implement a machine pulls, and draws the fields of a display again that change:
// active_implement FILE [SETTING VALUE]
// for example active_implement machine active sprayer, or active_implement machine sprayer/width 24
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>
#include <glue/NV_store/NV_safe_file_iterator.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>
#include <string>

using namespace NV_store;

struct Implement : NV_struct {
    using NV_struct::NV_struct;
    NV_number<float, 10> width{this, 1, 3.0F, "width"}; // metres
};

struct Machine : NV_root {
    explicit Machine(module_man& modules) : NV_root(&modules, 0, "machine") {
        _set_root(this);
        for (Implement* implement :
             {&seeder, &sprayer}) // a change of an implement is a change of the pointer to it, too
            connect(implement, qOverload<>(&NV_item::value_changed),
                    [=] { notify_pointers(implement, false, false, true, notify_waiters, this); });
    }
    Implement seeder{this, this, 1, "seeder"};
    Implement sprayer{this, this, 2, "sprayer"};
    NV_pointer active{this, this, 3, "active"};
    NV_number<unsigned, 6> headland{this, 4, 20, "headland"}; // metres
};

/// A field of the display. Its events carry its address, so that the receiver knows which field to draw.
struct Field : Virt_access {
    Field(NV_item* item, waiter_descriptor& receiver) : Virt_access(item), waiter(receiver) { autoreg(&waiter, true); }
    ~Field() { autounreg(&waiter); }
    bool is_meant(const waiter_event& event) const { return event.target == reinterpret_cast<std::uintptr_t>(this); }
    void draw() const {
        const auto* const pointer = dynamic_cast<NV_pointer*>(get_item());
        const NV_item* const shown = pointer ? pointer->__get() : get_item();
        char text[40] = "";
        shown->_to_string(text, sizeof text);
        const std::string name = pointer ? std::string(shown->get_name()) + " " : "";
        std::printf("%s: %s%s\n", get_item()->get_name(), name.c_str(), text);
    }
    waiter_descriptor& waiter;
};

static bool set(Machine& machine, const char* setting, const char* value) {
    NV_item* const item = machine._search(setting, '/');
    if (item != &machine.active)
        return item && item->_from_string(value);
    NV_item* const implement = machine._search(value, '/');
    if (!dynamic_cast<Implement*>(implement))
        return false;
    machine.active._set(implement, notify_all);
    return true;
}

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        std::fputs("usage: active_implement FILE [SETTING VALUE]\n", stderr);
        return 1;
    }
    module_man modules;
    Machine machine(modules);
    NV_safe_file_iterator file(argv[1]);
    file.set_mode(NV_iterator::reading);
    load_all(machine, file);
    file.set_mode(NV_iterator::closed);
    if (!machine.active.get())
        machine.active._set(machine.seeder, notify_none); // nothing is saved yet, or it is damaged

    waiter_descriptor waiter;
    Field implement(&machine.active, waiter), headland(&machine.headland, waiter);
    implement.draw();
    headland.draw();
    if (argc == 4 && !set(machine, argv[2], argv[3]))
        std::printf("%s does not accept %s\n", argv[2], argv[3]);
    for (waiter_event event; waiter.get_event(event, Atime::now()) == 0;)
        for (const Field* field : {&implement, &headland})
            if (field->is_meant(event))
                field->draw();
    return file.save(machine, NV_iterator::writing_all) ? 0 : 1;
}
