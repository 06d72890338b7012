#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>
#include <glue/data_stream/Stream_specification.h>
#include <glue/export.h>

#include <cstdint>
#include <memory>

class module_man;

/// Time-outs for a stream that the factory makes, in milliseconds; a negative one keeps the stream's default.
struct Data_stream_create_options {
    std::int32_t read_timeout_ms = -1;
    std::int32_t write_timeout_ms = -1;
};

/// Makes a stream of any kind from one text, the specification string, so that an application configures each of its
/// channels with a single string:
///
///     auto stream = Event_sender_data_stream_create_unique(modules, "/dev/ttyS1:115200", nullptr, 0, {});
///     if (!stream)
///         ...                                             // the reason was printed on standard error
///     stream->reg_rx_waiter(&waiter, false);
///
/// The text consists of, in this order:
/// - an optional label: anything, a "/", anything without a ",", and a ",". It is returned and otherwise ignored;
/// - an optional "aim,": the stream is wrapped in an `AIM_data_stream_adapter` on channel "x";
/// - the specification of a kind. The kinds are tried in this order, and the first that accepts it makes the stream:
///   "exec:" a child process, "tcpc:" a TCP client, "tcp:" a TCP server, "tcpb:" a buffered TCP server, "cons:" the
///   console, everything else a serial line. docs/stream_specifications.md describes each.
///
/// On purpose, and relied on: a label is as long as possible, so the beginning of a command line with a "/" and a later
/// "," becomes the label; "exec:", "tcp:" and "tcpb:" are found anywhere in the text.
///
/// \param modules  gives the stream its module id, where its kind gets one at once; for the console, serial lines and
///                 wrapped streams call `init` on the stream
/// \param spec     the specification; at most `longest_stream_specification` characters
/// \param label    receives the label, `label_size` bytes with its NUL; null, or a size of 0, when it is not needed.
///                 It is always terminated, and empty when there is no label or no stream
/// \param options  applied to the stream before it is wrapped
/// \return the stream, described by the whole text; null, after a message on standard error, when no kind accepts the
///         text or the kind cannot make the stream. Some errors end in an exception or an exit instead:
///         docs/stream_specifications.md names them
/// @{
GLUE_EXPORT Event_sender_data_stream* Event_sender_data_stream_create_raw(module_man& modules, const char* spec,
                                                                          char* label, unsigned int label_size,
                                                                          Data_stream_create_options options);
GLUE_EXPORT std::shared_ptr<Event_sender_data_stream> Event_sender_data_stream_create(
    module_man& modules, const char* spec, char* label, unsigned int label_size, Data_stream_create_options options);
GLUE_EXPORT std::unique_ptr<Event_sender_data_stream> Event_sender_data_stream_create_unique(
    module_man& modules, const char* spec, char* label, unsigned int label_size, Data_stream_create_options options);
/// @}
