#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <support/builders/AIM_adapter.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Enabled_category.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr unsigned longest_read = AIM_data_stream_adapter::longest_read;

// ---- Bytes that are not AIM frames ----

TEST_F(AIM_adapter, noise_between_frames_is_skipped) {
    raw.push("!rubbish\r\n" + aim_frame("abc") + "\r\n#more\n" + aim_frame("def"));
    EXPECT_EQ(receive(6), "abcdef");
}

TEST_F(AIM_adapter, noise_is_traced) {
    const Enabled_category traces(105);
    Captured_debug debug;
    raw.receive("!rubbish\n" + aim_frame("abc"));
    EXPECT_EQ(read_now(), "abc");
    EXPECT_EQ(debug.text_without_times(), "<time> ADSA discards rubbish  (9): !rubbish\\n\n"
                                          "<time> ADSA reads  (3): abc\n"
                                          "<time> ADSA: Drop complete. Refilled to 0.  Raw stream has 0\n");
}

TEST_F(AIM_adapter, writes_are_traced) {
    const Enabled_category traces(105);
    Captured_debug debug;
    write_bytes(adapter, "a\n");
    EXPECT_EQ(debug.text_without_times(), "<time> ADSA writes (2): a\\n\n");
}

TEST_F(AIM_adapter, nothing_is_traced_without_the_category) {
    Captured_debug debug;
    raw.receive("!rubbish\n" + aim_frame("abc"));
    EXPECT_EQ(read_now(), "abc");
    adapter.drop_all();
    write_bytes(adapter, "a\n");
    EXPECT_EQ(debug.text(), "");
}

/// The report of a frame that is not an AIM frame: the text, then the bytes of the ring, which is empty.
constexpr const char* refusal = "<time> Unexpected non AIM data read\n[]\n";

TEST_F(AIM_adapter, frame_with_a_wrong_checksum_is_refused) {
    Captured_debug debug;
    std::string damaged = aim_frame("abcdefgh");
    damaged[8] ^= 0x10;
    raw.receive(damaged + aim_frame("xyz"));
    EXPECT_EQ(read_now(), "xyz");
    EXPECT_EQ(debug.text_without_times(), refusal);
}

TEST_F(AIM_adapter, frame_with_another_identifier_is_refused_though_its_checksum_is_right) {
    for (const char* identifier : {"PG", "><", "<>"}) {
        Captured_debug debug;
        raw.receive(build_frame(identifier, "abc") + aim_frame("xyz"));
        EXPECT_EQ(read_now(), "xyz");
        EXPECT_EQ(debug.text_without_times(), refusal) << identifier;
    }
}

TEST_F(AIM_adapter, frame_too_short_for_a_channel_is_refused_though_its_checksum_is_right) {
    for (const Checksum checksum : {Checksum::binary, Checksum::text}) { // lengths 1 and 2
        Captured_debug debug;
        raw.receive(build_frame(">>", "", checksum) + aim_frame("xyz"));
        EXPECT_EQ(read_now(), "xyz");
        EXPECT_EQ(debug.text_without_times(), refusal);
    }
}

TEST_F(AIM_adapter, frame_longer_than_the_longest_is_refused_and_the_next_one_is_not) {
    for (const unsigned size : {longest_read + 1, longest_read + 2}) {
        Captured_debug debug;
        raw.receive(aim_frame(std::string(size, 'x')));
        EXPECT_EQ(read_now(), "");
        raw.receive(aim_frame("xyz"));
        EXPECT_EQ(read_now(), "xyz");
        EXPECT_EQ(debug.text_without_times(), refusal);
    }
}

TEST_F(AIM_adapter, empty_raw_stream_is_not_fetched_from_after_a_refusal) {
    const Captured_debug debug;
    int fetches = 0;
    raw.on_fetch = [&fetches] { ++fetches; };
    raw.receive(build_frame("PG", "abc"));
    EXPECT_EQ(adapter.bytes_avail(1U), 0);
    EXPECT_EQ(fetches, 0);
    raw.receive("!rubbish\n");
    EXPECT_EQ(adapter.bytes_avail(1U), 0);
    EXPECT_EQ(fetches, 1); // by the parser, for the rest of the line end
}

TEST_F(AIM_adapter, after_a_reply_no_frame_is_taken_until_the_next_event) {
    const std::string reply = build_frame("RE", "OK", Checksum::text, "\r\n");
    raw.receive(reply + aim_frame("abc"));
    EXPECT_EQ(adapter.bytes_avail(1U), 0);
    EXPECT_EQ(raw.buffered(), aim_frame("abc"));
    raw.push("");
    EXPECT_EQ(receive(3), "abc");
}

TEST_F(AIM_adapter, drop_all_stops_at_a_reply) {
    raw.receive(aim_frame("abc") + build_frame("RE", "OK", Checksum::text, "\r\n") + aim_frame("def"));
    adapter.drop_all();
    EXPECT_EQ(read_now(), "def");
}

TEST_F(AIM_adapter, acknowledgement_is_reported_and_skipped) {
    Captured_debug debug;
    raw.receive("\x06");
    EXPECT_EQ(adapter.bytes_avail(1U), 0);
    EXPECT_EQ(debug.text(), "DTP Response unhandled\n");
    raw.receive(aim_frame("abc"));
    EXPECT_EQ(read_now(), "abc");
}

// ---- Reading without the lock ----

class AIM_adapter_death : public AIM_adapter {
  protected:
    AIM_adapter_death() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// Calls `operation` while another thread holds the lock.
    template <typename Operation>
    void while_locked_elsewhere(Operation operation) {
        std::atomic<bool> locked{false}, done{false};
        std::thread holder([&] {
            const std::lock_guard guard(adapter);
            locked = true;
            while (!done)
                std::this_thread::yield();
        });
        while (!locked)
            std::this_thread::yield();
        operation();
        done = true;
        holder.join();
    }
};

TEST_F(AIM_adapter_death, aborts_when_nobody_holds_the_lock) {
    EXPECT_EXIT(adapter.get_data(1), testing::KilledBySignal(SIGABRT), "Bad mutex status: 0, wanted: 1 ");
}

TEST_F(AIM_adapter_death, aborts_when_another_thread_holds_the_lock) {
    EXPECT_EXIT(while_locked_elsewhere([this] { adapter.get_data(1); }), testing::KilledBySignal(SIGABRT),
                "Bad mutex status: 2, wanted: 1 ");
}

TEST_F(AIM_adapter_death, category_43_reports_without_aborting) {
    const Enabled_category no_abort(43);
    Captured_debug debug;
    raw.receive(aim_frame("abc"));
    EXPECT_EQ(adapter.get_data(3), 1);
    char expected[64];
    std::snprintf(expected, sizeof expected, "Bad mutex status: 0, wanted: 1 %p %p", static_cast<void*>(nullptr),
                  QThread::currentThreadId());
    EXPECT_EQ(debug.text().rfind(expected, 0), 0U) << debug.text();
    EXPECT_EQ(take_buffered(adapter), "abc"); // the lock is free again
}

TEST_F(AIM_adapter_death, report_names_the_thread_that_holds_the_lock) {
    const Enabled_category no_abort(43);
    Captured_debug debug;
    char expected[64];
    while_locked_elsewhere([&] {
        put("abc"); // nothing is fetched
        EXPECT_EQ(adapter.get_data(3), 1);
    });
    std::snprintf(expected, sizeof expected, "Bad mutex status: 2, wanted: 1 0x");
    EXPECT_EQ(debug.text().rfind(expected, 0), 0U) << debug.text();
    std::snprintf(expected, sizeof expected, " %p", QThread::currentThreadId());
    EXPECT_NE(debug.text().find(expected), std::string::npos) << debug.text();
}

TEST_F(AIM_adapter_death, category_44_neither_reports_nor_aborts) {
    const Enabled_category no_report(44);
    Captured_debug debug;
    raw.receive(aim_frame("abc"));
    EXPECT_EQ(adapter.get_data(3), 1);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(AIM_adapter, reports_nothing_when_the_caller_holds_the_lock) {
    Captured_debug debug;
    const std::lock_guard guard(adapter);
    EXPECT_EQ(adapter.get_data(1), 0);
    EXPECT_EQ(debug.text(), "");
}

} // namespace
