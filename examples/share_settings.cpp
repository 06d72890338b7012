// Copies another unit's settings, over any stream:
//     share_settings FILE                   sends the settings of a file to standard output
//     share_settings FILE SPECIFICATION     writes the settings that a stream receives into a file, for example
//                                           share_settings mine "exec:ssh other share_settings theirs"
#include "Unit_settings.h"

#include <glue/NV_store/NV_safe_file_iterator.h>
#include <glue/NV_store/NV_stream_iterator.h>
#include <glue/data_stream/Data_stream_factory.h>
#include <glue/data_stream/Event_receiver_data_stream.h>
#include <glue/data_stream/Posix_data_stream.h>

#include <platform/module_man.h>

#include <cstdio>
#include <string>

using namespace NV_store;

/// Selects everything except what is each unit's own.
struct Shared : NV_default_selector {
    explicit Shared(const NV_item& item) : own(item) {}
    bool include_in_serialise(const NV_item& item, const NV_iterator* it, bool& ok,
                              bool ignore_selector) const override {
        return NV_default_selector::include_in_serialise(item, it, ok, ignore_selector) && &item != &own;
    }
    const NV_item& own;
};

static bool send(Unit_settings& settings) {
    const Shared shared(settings.starts);
    Posix_data_stream output(-1, 1);
    NV_stream_iterator link(output);
    link.set_selector(&shared);
    link.set_mode(NV_iterator::writing_all);
    return settings.serialise(&link);
}

static std::string text_of(const NV_item& item) {
    char text[40] = "";
    item._to_string(text, sizeof text);
    return text;
}

/// Gives each received setting the value that it has at the other unit; its path from the root finds it here.
static void apply(Unit_settings& received, Unit_settings& settings) {
    for (NV_item* item = &received; item; item = item->get_next_in_tree(&received)) {
        if (dynamic_cast<NV_container*>(item) || (item->get_flags() & NV_item::pristine))
            continue;
        NV_path path;
        received.build_path(&path, item);
        NV_item* const own = settings.follow_path(path);
        const std::string before = text_of(*own), now = text_of(*item);
        if (now != before)
            std::printf("%s: %s, was %s\n", own->get_name(), now.c_str(), before.c_str());
        own->_from_string(now.c_str());
    }
}

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fputs("usage: share_settings FILE [SPECIFICATION]\n", stderr);
        return 1;
    }
    module_man modules;
    Unit_settings settings(modules);
    NV_file_iterator file(argv[1]); // enough for reading
    file.set_mode(NV_iterator::reading);
    const bool intact = load_all(settings, file).intact;
    file.set_mode(NV_iterator::closed);
    if (!intact) {
        std::fprintf(stderr, "%s: no settings, or damaged ones\n", argv[1]);
        return 1;
    }
    if (argc == 2) {
        return send(settings) ? 0 : 1;
    }
    const auto channel = Event_sender_data_stream_create_unique(modules, argv[2], nullptr, 0, {});
    if (!channel)
        return 1;
    Event_receiver_data_stream stream(*channel, modules); // waits for bytes that have not arrived yet
    NV_stream_iterator link(stream);
    link.set_mode(NV_iterator::reading);
    Unit_settings received(modules); // a tree of its own, so that damaged settings change nothing
    if (!received.deserialise(&link)) {
        std::fputs("nothing copied: the received settings are damaged or incomplete\n", stderr);
        return 1;
    }
    apply(received, settings);
    return NV_safe_file_iterator(argv[1]).save(settings, NV_iterator::writing_all) ? 0 : 1;
}
