#include "data_stream/network/TCP_server_streams.h"

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/Atime.h>

namespace glue_detail {

unsigned int append_received(Event_sender_data_stream& stream, Cbuf_templ<unsigned char>& ring,
                             const unsigned char* data, unsigned int len, std::unique_lock<Mutex> held) {
    const unsigned int appended = ring.append(data, len);
    stream.send_rx_event(false);
    held.unlock();
    if (appended < len)
        Atime::delay(1);
    return appended;
}

} // namespace glue_detail
