#include "Stream_trace.h"

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/Process_data_stream.h>
#include <glue/data_stream/port_logging.h>

namespace {

bool traces_itself(const Event_sender_data_stream& stream) {
    return !dynamic_cast<const Process_data_stream*>(&stream) && !dynamic_cast<const AIM_data_stream_adapter*>(&stream);
}

} // namespace

Stream_trace::Stream_trace(Event_sender_data_stream& stream) : stream_(traces_itself(stream) ? nullptr : &stream) {
    Debug::Print::enable(port_logging_category, true);
    stream.set_port_logging(Data_stream::log_all);
}

void Stream_trace::show(const char* direction, const unsigned char* data, unsigned count, unsigned& counter) {
    if (stream_ && count > 0)
        do_port_logging(Debug::Print::enabled(port_logging_category), stream_->copy_description().data(), direction,
                        data, data + count, &counter);
}
