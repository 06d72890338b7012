#pragma once

#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Scripted_event_sender.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

/// An AIM frame as it is received.
inline std::string aim_frame(const std::string& payload, char channel = '1') {
    return build_frame(">>", channel + payload, Checksum::text);
}

/// Access to the ring of a stream, for a test that appends bytes to it without frames.
class Ring : public Data_stream {
  public:
    static Cbuf_templ<unsigned char>& of(Data_stream& stream) { return stream.*(&Ring::rx_buffer); }
};

/// An adapter over a raw stream whose bytes the test supplies: `push` sends an event, so that the adapter's loop takes
/// the frames; `receive` sends none, so that a reader takes them.
class AIM_adapter : public testing::Test {
  protected:
    AIM_adapter() { adapter.reg_rx_waiter(rx, false); }

    /// Reads at least `count` bytes, frame by frame.
    std::string receive(unsigned count) {
        std::string bytes;
        EXPECT_TRUE(eventually([&] {
            bytes += take_buffered(adapter);
            return bytes.size() >= count;
        })) << "only "
            << bytes.size() << " bytes received";
        return bytes;
    }
    /// Appends bytes to the ring without a frame; the caller holds the lock.
    void put(const std::string& bytes) {
        Ring::of(adapter).append(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
    }
    /// The bytes that a reader gets without the loop.
    std::string read_now() {
        std::string bytes;
        while (adapter.bytes_avail(1))
            bytes += take_buffered(adapter);
        return bytes;
    }

    module_man modules;
    Recording_waiter rx;
    std::unique_ptr<Scripted_event_sender> owned = std::make_unique<Scripted_event_sender>();
    Scripted_event_sender& raw = *owned;
    AIM_data_stream_adapter adapter{modules, std::move(owned), '1'};
};
