// Counts the starts of a unit in a file store, and adds each to a report there. The store is small and becomes full:
// file_store DIRECTORY
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_pcfile_iterator.h>
#include <glue/NV_store/NV_root.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>

using namespace NV_store;

constexpr std::uint32_t store_size = 100;
constexpr int attempts = 5; // to open a file while the store is busy

struct Settings : NV_root {
    Settings() : NV_root(nullptr, 0, "settings") { _set_root(this); }
    NV_number<unsigned, 6> starts{this, 1, 0, "starts"};
};

/// Whether the store has notified us that it is full.
static bool is_full(waiter_descriptor& waiter) {
    bool full = false;
    for (waiter_event event; waiter.get_event(event, Atime::now()) == 0;)
        full = full || PCFile_data_stream::is_event(event);
    return full;
}

static void save(Settings& settings, NV_iterator& file, NV_iterator::modes_t mode) {
    file.set_mode(mode);
    static_cast<void>(settings.serialise(&file)); // true also when the store is full: the waiter is notified of that
    file.set_mode(NV_iterator::closed);
}

/// A write that does not fit ends the process, so this checks the free space first.
static bool report(const char* text, unsigned length) {
    unsigned used = 0, total = 0;
    PCFile_data_stream file;
    if (!PCFile_data_stream::get_free_space(used, total) || total - used < length ||
        file.open_write("report", attempts) != PCFile_data_stream::success)
        return false;
    file.printf("%s", text);
    return file.close_write() == PCFile_data_stream::success;
}

static void print_file(const char* name) {
    PCFile_data_stream file;
    if (file.open_read(name, attempts) != PCFile_data_stream::success)
        return;
    for (unsigned char byte = 0; static_cast<Data_stream&>(file).get_data(&byte, 1, 0); file.drop(1))
        std::putchar(byte);
    file.close_read();
}

int main(int argc, char** argv) {
    if (argc != 2 || !pcfMount(argv[1], store_size)) {
        std::fputs("usage: file_store DIRECTORY\n", stderr);
        return 1;
    }
    module_man modules;
    waiter_descriptor waiter;
    PCFile_data_stream::static_init(modules);
    PCFile_data_stream::register_waiter(&waiter);

    Settings settings;
    NV_pcfile_iterator file("settings");
    file.set_mode(NV_iterator::reading);
    const bool intact = load_all(settings, file).intact;
    settings.starts++;
    // Nothing after a damaged record would be loaded again.
    save(settings, file, intact ? NV_iterator::appending_changed : NV_iterator::writing_all);
    if (is_full(waiter)) {
        std::puts("full: the report makes room");
        PCFile_data_stream::remove("report");
        save(settings, file, NV_iterator::writing_all); // one record instead of the appended ones
    }
    char text[30];
    if (!report(text, static_cast<unsigned>(std::snprintf(text, sizeof text, "start %u\n", settings.starts.get()))))
        std::puts("not reported");

    unsigned used = 0, total = 0;
    PCFile_data_stream::get_free_space(used, total);
    std::printf("%s: %u of %u bytes\n", PCFile_data_stream::get_directory(), used, total);
    for (PCFile_data_stream::Iterator each; const char* name = each.get_name(); each.next())
        std::printf("file %s\n", name);
    print_file("report");
    PCFile_data_stream::deregister_waiter(&waiter);
    pcfUnmount();
}
