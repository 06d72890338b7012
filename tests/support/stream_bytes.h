#pragma once

#include <glue/data_stream/Data_stream.h>

#include <string>
#include <string_view>

/// Everything that a stream has buffered, oldest first; fetches and consumes nothing.
inline std::string buffered(Data_stream& stream) {
    std::string bytes(stream.bytes_avail(), '\0');
    stream.get_data(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()), 0);
    return bytes;
}

/// Writes a text, past the tracing and the write guard. \return what the transport's `_write` returned
inline int write_text(Data_stream& stream, std::string_view text) {
    return stream._write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
}
