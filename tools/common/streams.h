#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <memory>
#include <string>

/// What the programs do with streams that a specification text makes.
namespace streams {

/// Makes a stream. \return null, after a line on standard error, when the text makes none
std::unique_ptr<Event_sender_data_stream> open(const std::string& specification);

/// Whether nothing will come from a stream any more: it is a child process that has ended, and all that it said has
/// been received. Every other stream may come back.
bool has_ended(const Event_sender_data_stream& stream);

} // namespace streams
