#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>
#include <glue/export.h>

#include <cstdint>
#include <memory>

class module_man;

/// Time-outs for a stream that the factory makes, in milliseconds; a negative one keeps the stream's default.
struct Data_stream_create_options {
    std::int32_t read_timeout_ms = -1;
    std::int32_t write_timeout_ms = -1;
};

/// Makes a stream of any kind from one text, the stream specification, so that an application configures each of its
/// channels with a single string:
///
///     auto stream = Event_sender_data_stream_create_unique(modules, "/dev/ttyS1:115200", nullptr, 0, {});
///     if (!stream)
///         ...                                             // what is wrong stands on standard error
///     stream->reg_rx_waiter(&waiter, false);
///
/// The text is, in this order:
/// - an optional label: anything, a "/", anything without a ",", and a ",". It is handed back and otherwise ignored;
/// - an optional "aim,": the stream is wrapped in an `AIM_data_stream_adapter` on channel "x";
/// - the specification of a kind. The kinds are asked in this order, and the first that takes it makes the stream:
///   "exec:" a child process, "tcpc:" a TCP client, "tcp:" a TCP server, "tcpb:" a buffered TCP server, "cons:" the
///   console, everything else a serial line. The page on stream specifications describes each.
///
/// On purpose, and relied on: a label reaches as far as it can, so a command line that holds "/" and a later "," loses
/// its head to the label; "exec:", "tcp:" and "tcpb:" are found anywhere in the text.
///
/// \param modules  gives the stream its module id, where its kind takes one at once; for the console, serial lines and
///                 wrapped streams call `init` on the stream
/// \param spec     the specification; at most `longest_stream_specification` characters
/// \param label    where the label goes, with `label_size` bytes of room; null, or a size of 0, when nobody wants it.
///                 It is always terminated, and empty when there is no label or no stream
/// \param options  applied to the stream before it is wrapped
/// \return the stream, described by the whole text; null, after a message on standard error, when no kind takes the
///         text or the kind cannot make it. What a kind does with a text of its own that is wrong (an exception, an
///         exit) is told on that page
/// @{
GLUE_EXPORT Event_sender_data_stream* Event_sender_data_stream_create_raw(module_man& modules, const char* spec,
                                                                          char* label, unsigned int label_size,
                                                                          Data_stream_create_options options);
GLUE_EXPORT std::shared_ptr<Event_sender_data_stream> Event_sender_data_stream_create(
    module_man& modules, const char* spec, char* label, unsigned int label_size, Data_stream_create_options options);
GLUE_EXPORT std::unique_ptr<Event_sender_data_stream> Event_sender_data_stream_create_unique(
    module_man& modules, const char* spec, char* label, unsigned int label_size, Data_stream_create_options options);
/// @}

/// A longer text is no kind's: matching one takes stack in proportion to its length.
constexpr unsigned int longest_stream_specification = 4096;
