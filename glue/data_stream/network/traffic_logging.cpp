#include "data_stream/network/traffic_logging.h"

#include <glue/data_stream/Data_stream.h>
#include <glue/data_stream/port_logging.h>

namespace glue_detail {

void log_traffic(const Data_stream& stream, const char* direction, const unsigned char* data, unsigned int len,
                 unsigned int& counter) {
    do_port_logging(Debug::Print::enabled(port_logging_category), stream.get_description(), direction, data, data + len,
                    &counter);
}

} // namespace glue_detail
