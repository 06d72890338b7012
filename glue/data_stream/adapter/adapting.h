#pragma once

#include <glue/data_stream/Data_stream.h>

/// What the streams have in common that sit over another stream.
namespace glue_detail {

/// Category of their traces.
constexpr unsigned adapter_traces = 105;

/// Moves what `inner` has buffered into `ring`; what does not fit stays in `inner`. Never asks `inner` for more than it
/// says to have buffered.
void move_buffered(Data_stream& inner, Cbuf_templ<unsigned char>& ring);

} // namespace glue_detail
