#pragma once

#include <glue/data_stream/Data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/streams/TCP_socket.h>

#include <gtest/gtest.h>
#include <string>

/// Waits until a server stream listens.
template <typename Stream>
void wait_until_open(Stream& stream) {
    ASSERT_TRUE(eventually([&] { return stream.local_port() > 0; }));
}

/// A client that the server stream has accepted.
template <typename Stream>
TCP_socket connect_to(Stream& stream, int receive_buffer = 0) {
    wait_until_open(stream);
    const unsigned before = stream.connection_count();
    TCP_socket client = TCP_socket::connected_to(stream.local_port(), receive_buffer);
    EXPECT_TRUE(eventually([&] { return stream.connection_count() == before + 1; }));
    return client;
}

/// Reads until it has `count` bytes or more; fewer, and a failure of the test, when they do not arrive within 20
/// seconds.
inline std::string take(Data_stream& stream, std::size_t count) {
    std::string bytes;
    EXPECT_TRUE(eventually([&] {
        while (stream.bytes_avail() > 0)
            bytes += take_buffered(stream);
        return bytes.size() >= count;
    })) << bytes.size()
        << " bytes arrived";
    return bytes;
}
