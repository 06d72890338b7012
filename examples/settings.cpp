// Keeps a unit's settings in a file: settings FILE [SETTING VALUE], for example settings unit guidance/swath_width 9.5
#include "Unit_settings.h"

#include <glue/NV_store/NV_safe_file_iterator.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>

using namespace NV_store;

static void load(Unit_settings& settings, NV_iterator& file) {
    file.set_mode(NV_iterator::reading);
    if (file.get_mode() == NV_iterator::closed)
        std::puts("no settings yet: defaults");
    else if (!load_all(settings, file).intact)
        std::puts("settings damaged: lost ones have their defaults");
    file.set_mode(NV_iterator::closed);
    settings.signal_all(); // loading notifies nobody
}

static void print(const Unit_settings& settings) {
    char text[200];
    settings._to_string(text, sizeof text);
    std::printf("settings: %s\n", text);
}

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        std::fputs("usage: settings FILE [SETTING VALUE]\n", stderr);
        return 1;
    }
    module_man modules;
    Unit_settings settings(modules);
    NV_safe_file_iterator file(argv[1]);
    load(settings, file);
    print(settings);

    // A slot is called at once, in the thread that makes the change, while that thread holds the lock of the tree.
    const auto& guidance = settings.guidance;
    QObject::connect(&guidance, qOverload<>(&NV_item::value_changed),
                     [&] { std::printf("signal: swath width is %g m\n", guidance.swath_width._get()); });
    // A waiter receives an event, which its thread takes when it is ready. A change of a member is a change of the
    // root.
    waiter_descriptor waiter;
    settings.autoreg_waiter(&waiter, true);

    settings.starts++;
    if (argc == 4) {
        const NV_lock held(settings);
        NV_item* const setting = settings._search(argv[2], '/');
        if (!setting || !setting->_from_string(argv[3]))
            std::printf("%s does not accept %s\n", argv[2], argv[3]);
    }
    waiter_event event;
    int changes = 0;
    while (waiter.get_event(event, Atime::now()) == 0)
        if (settings.is_event(event))
            ++changes;
    std::printf("waiter: %d changes\n", changes);
    settings.autounreg_waiter(&waiter);

    print(settings);
    return file.save(settings, NV_iterator::writing_all) ? 0 : 1;
}
