#pragma once

#include <glue/data_stream/Event_sender_data_stream.h>

#include <memory>
#include <string>

/// The streams that the programs make from specification strings.
namespace streams {

/// Makes a stream. \return null, after a line on standard error, when the text makes none
std::unique_ptr<Event_sender_data_stream> open(const std::string& specification);

} // namespace streams
