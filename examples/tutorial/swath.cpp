// Keeps the swath width of a machine: swath FILE [METRES]
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>
#include <glue/NV_store/NV_safe_file_iterator.h>

#include <platform/module_man.h>

#include <cstdio>

using namespace NV_store;

/// A setting is a member: its parent, the id under which files know it, its default, its name.
struct Settings : NV_root {
    explicit Settings(module_man& modules) : NV_root(&modules, 0, "settings") { _set_root(this); }
    NV_number<float, 10> swath_width{this, 1, 12.0F, "swath_width"}; // metres
};

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3)
        return 1;
    module_man modules;
    Settings settings(modules);
    QObject::connect(&settings.swath_width, qOverload<>(&NV_item::value_changed),
                     [&] { std::printf("changed to %g m\n", settings.swath_width._get()); });

    NV_safe_file_iterator file(argv[1]);
    file.set_mode(NV_iterator::reading);
    const bool exists = file.get_mode() != NV_iterator::closed;
    if (exists && !load_all(settings, file).intact)
        std::puts("the file is damaged");
    file.set_mode(NV_iterator::closed);
    std::printf("swath width: %g m\n", settings.swath_width.get());

    if (argc == 2)
        return 0;
    {
        const NV_lock held(settings); // operations with a leading underscore take no lock
        if (!settings.swath_width._from_string(argv[2])) {
            std::puts("not a number");
            return 1;
        }
    }
    return file.save(settings, NV_iterator::writing_all) ? 0 : 1;
}
