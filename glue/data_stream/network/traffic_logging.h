#pragma once

class Data_stream;

namespace glue_detail {

/// Logs bytes that pass through a stream, under its description: see `do_port_logging`.
/// \param counter  the stream's total for this direction; grows by `len`
void log_traffic(const Data_stream& stream, const char* direction, const unsigned char* data, unsigned int len,
                 unsigned int& counter);

} // namespace glue_detail
