#pragma once

#include <glue/data_stream/Data_stream.h>

/// Plumbing of the streams that read from another stream.
namespace glue_detail {

/// Debug category of their traces.
constexpr unsigned adapter_traces = 105;

/// Moves the bytes that `inner` has buffered into `ring`; those that do not fit stay in `inner`. Never fetches.
void move_buffered(Data_stream& inner, Cbuf_templ<unsigned char>& ring);

} // namespace glue_detail
