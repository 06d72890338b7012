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

/// An AIM frame as it comes in.
inline std::string aim_frame(const std::string& payload, char channel = '1') {
    return build_frame(">>", channel + payload, Checksum::text);
}

/// The ring of a stream, for a test that puts bytes into it past the frames.
class Ring : public Data_stream {
  public:
    static Cbuf_templ<unsigned char>& of(Data_stream& stream) { return stream.*(&Ring::rx_buffer); }
};

/// An adapter over a raw stream whose bytes the test pushes: `push` announces them, so the adapter's loop takes them;
/// `receive` does not, so that a reader must.
class AIM_adapter : public testing::Test {
  protected:
    AIM_adapter() { adapter.reg_rx_waiter(rx, false); }

    /// Everything readable, frame after frame.
    std::string receive(unsigned count) {
        std::string bytes;
        EXPECT_TRUE(eventually([&] {
            bytes += take_buffered(adapter);
            return bytes.size() >= count;
        })) << "only "
            << bytes.size() << " bytes came";
        return bytes;
    }
    /// Puts bytes into the ring past the frames; the lock is held.
    void put(const std::string& bytes) {
        Ring::of(adapter).append(bytes_of(bytes), static_cast<unsigned>(bytes.size()));
    }
    /// What a reader finds without any help of the loop's.
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
