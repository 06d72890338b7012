#pragma once

#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/files/descriptors.h>
#include <support/streams/Threaded_stream.h>

#include <gtest/gtest.h>
#include <string>

/// A test with a threaded stream that reads from a socket and notifies a waiter. The thread does not run yet.
struct Receiving_stream : testing::Test {
    Captured_descriptor errors{STDERR_FILENO};
    Socket_pair sockets;
    Threaded_stream stream{sockets.take_near(), -1};
    Recording_waiter waiter;

    Receiving_stream() { stream.reg_rx_waiter(waiter, false); }
    ~Receiving_stream() override { stream.stop(); }

    void arrive(std::string_view bytes) const { write_all(sockets.far(), bytes); }
    /// Waits until `count` bytes are buffered.
    bool receives(unsigned count) {
        return eventually([&] { return stream.bytes_avail() == count; });
    }
    /// Waits until exactly `text` has been written to standard error.
    bool is_reported(const std::string& text) const {
        return eventually([&] { return errors.text() == text; });
    }
};
