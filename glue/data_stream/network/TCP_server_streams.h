#pragma once

#include <platform/Cbuf.h>
#include <platform/Mutex.h>

#include <mutex>

class Event_sender_data_stream;

/// What the two server streams do alike.
namespace glue_detail {

/// The arguments of their tasks.
constexpr int server_stack_size = 5120;

/// Moves received bytes into the stream's ring and announces them. When the ring cannot take them all, sleeps for one
/// unit afterwards, without the lock: whoever offers them is slowed down to the pace of the reader.
/// \param held  the stream's lock; released
/// \return how many were taken
unsigned int take_received(Event_sender_data_stream& stream, Cbuf_templ<unsigned char>& ring, const unsigned char* data,
                           unsigned int len, std::unique_lock<Mutex> held);

} // namespace glue_detail
