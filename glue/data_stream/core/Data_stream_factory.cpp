#include <glue/data_stream/Data_stream_factory.h>

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/Posix_console_data_stream.h>
#include <glue/data_stream/Posix_threaded_serial_data_stream.h>
#include <glue/data_stream/Process_data_stream.h>
#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_buffered_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using Stream = std::unique_ptr<Event_sender_data_stream>;

constexpr char aim_channel = 'x';

/// Tries one kind after the other; null when none accepts the text.
Stream make_transport(module_man& modules, const char* spec) {
    Stream stream;
    const auto made = [&stream](Event_sender_data_stream* by_kind) {
        stream.reset(by_kind);
        return by_kind != nullptr;
    };
    if (made(Process_data_stream::create(modules, spec, nullptr)) || //
        made(TCP_client_data_stream::create(modules, spec)) || made(TCP_server_data_stream::create(modules, spec)) ||
        made(TCP_server_buffered_data_stream::create(modules, spec)) || made(Posix_console_data_stream::create(spec)))
        return stream;
    made(Posix_threaded_serial_data_stream::create(spec));
    return stream;
}

void apply(const Data_stream_create_options& options, Data_stream& stream) {
    if (options.read_timeout_ms >= 0)
        stream.set_read_timeout(options.read_timeout_ms);
    if (options.write_timeout_ms >= 0)
        stream.set_write_timeout(options.write_timeout_ms);
}

Stream create(module_man& modules, const char* spec, std::string& label, Data_stream_create_options options) {
    Stream stream;
    const auto split = split_stream_specification(spec);
    if (split) {
        label = split->label;
        stream = make_transport(modules, split->own_text.c_str());
    }
    if (!stream) {
        std::fprintf(stderr, "Error: can't parse %s into a port specification\n", spec);
        return nullptr;
    }
    apply(options, *stream);
    if (split->wants_aim)
        stream = std::make_unique<AIM_data_stream_adapter>(modules, std::move(stream), aim_channel);
    stream->set_description(spec);
    return stream;
}

} // namespace

std::unique_ptr<Event_sender_data_stream> Event_sender_data_stream_create_unique(module_man& modules, const char* spec,
                                                                                 char* label, unsigned int label_size,
                                                                                 Data_stream_create_options options) {
    const bool label_wanted = label && label_size > 0;
    if (label_wanted)
        label[0] = '\0';
    std::string label_found;
    Stream stream = create(modules, spec, label_found, options);
    if (stream && label_wanted) {
        std::strncpy(label, label_found.c_str(), label_size - 1);
        label[label_size - 1] = '\0';
    }
    return stream;
}

Event_sender_data_stream* Event_sender_data_stream_create_raw(module_man& modules, const char* spec, char* label,
                                                              unsigned int label_size,
                                                              Data_stream_create_options options) {
    return Event_sender_data_stream_create_unique(modules, spec, label, label_size, options).release();
}

std::shared_ptr<Event_sender_data_stream> Event_sender_data_stream_create(module_man& modules, const char* spec,
                                                                          char* label, unsigned int label_size,
                                                                          Data_stream_create_options options) {
    return Event_sender_data_stream_create_unique(modules, spec, label, label_size, options);
}
