// Takes over another unit's settings, over any stream:
//     share_settings FILE                   sends those in a file to standard output
//     share_settings FILE SPECIFICATION     puts those that a stream brings into a file, for example
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

/// Lets everything through but what is each unit's own.
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

/// Gives each setting that came, found by its way from the root, the value that it has at the other unit.
static void apply(Unit_settings& received, Unit_settings& settings) {
    for (NV_item* item = &received; item; item = item->get_next_in_tree(&received)) {
        if (dynamic_cast<NV_container*>(item) || (item->get_flags() & NV_item::pristine))
            continue;
        NV_path way;
        received.build_path(&way, item);
        NV_item* const own = settings.follow_path(way);
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
    NV_file_iterator file(argv[1]); // reading wants no more than this
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
    Event_receiver_data_stream stream(*channel, modules); // waits for what is still under way
    NV_stream_iterator link(stream);
    link.set_mode(NV_iterator::reading);
    Unit_settings received(modules); // so that nothing is taken over of what arrives damaged
    if (!received.deserialise(&link)) {
        std::fputs("nothing taken over: what arrived is damaged or not all of it\n", stderr);
        return 1;
    }
    apply(received, settings);
    return NV_safe_file_iterator(argv[1]).save(settings, NV_iterator::writing_all) ? 0 : 1;
}
