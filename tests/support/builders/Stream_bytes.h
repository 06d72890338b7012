#pragma once

#include <glue/data_stream/Data_stream.h>

#include <support/fakes/Scripted_stream.h>

#include <cstdio>
#include <string>
#include <string_view>

/// Bytes that repeat only after 251.
inline std::string numbered(std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(i % 251);
    return bytes;
}

/// Writes the bytes of a text. \return the result of `__write`
inline int write_bytes(Data_stream& stream, const std::string& bytes) {
    return stream.__write(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
}

/// Writes a text without tracing and write guard. \return the result of the transport's `_write`
inline int write_text(Data_stream& stream, std::string_view text) {
    return stream._write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
}

/// All bytes in the receive ring, oldest first; fetches and consumes nothing.
inline std::string buffered(Data_stream& stream) {
    std::string bytes(stream.bytes_avail(), '\0');
    stream.get_data(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()), 0);
    return bytes;
}

/// Takes all bytes in the receive ring; fetches nothing.
inline std::string take_buffered(Data_stream& stream) {
    std::string bytes = buffered(stream);
    stream.drop(static_cast<unsigned>(bytes.size()));
    return bytes;
}

/// The description of a stream that has no name of its own.
inline std::string plain_description(Data_stream& stream) {
    char text[Data_stream::description_size];
    std::snprintf(text, sizeof text, "DS(%p)", static_cast<void*>(&stream));
    return text;
}
