#include "Stream_trace.h"

#include <glue/data_stream/port_logging.h>

Stream_trace::Stream_trace(Event_sender_data_stream& stream) : stream_(stream.traces_itself() ? nullptr : &stream) {
    Debug::Print::enable(port_logging_category, true);
    stream.set_port_logging(Data_stream::log_all);
}

void Stream_trace::log(const char* direction, const unsigned char* data, unsigned count, unsigned& counter) {
    if (stream_ && count > 0)
        do_port_logging(Debug::Print::enabled(port_logging_category), stream_->copy_description().data(), direction,
                        data, data + count, &counter);
}
