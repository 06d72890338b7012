#pragma once

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <mutex>

class Event_sender_data_stream;

/// What the two server streams share.
namespace glue_detail {

constexpr int server_stack_size = 5120;

/// Appends received bytes to the stream's ring and announces them. When not all of them fit, sleeps for one unit
/// afterwards, without the lock: this back-pressure slows the server down to the pace of the reader.
/// \param held  the stream's lock; released
/// \return how many were appended
unsigned int append_received(Event_sender_data_stream& stream, Cbuf_templ<unsigned char>& ring,
                             const unsigned char* data, unsigned int len, std::unique_lock<Mutex> held);

} // namespace glue_detail
