// One file: opening, closing, reading, writing. PCFile_data_stream_store_test.cpp has the store as a whole and events.

#include <glue/data_stream/PCFile_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/builders/cut_description.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Allocation_counter.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_store_calls.h>
#include <support/files/Mounted_store.h>

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;
using Stream = PCFile_data_stream;
using Answer = std::optional<int>;

struct PCFile : testing::Test {
    PCFile() { store.make_file("a", "abcdef"); }
    ~PCFile() override {
        static_cast<void>(stream->close_read());
        static_cast<void>(stream->close_write());
        Stream::deregister_waiter(waiter);
    }

    void expect_described(const char* format, const char* name = "") {
        char expected[64];
        std::snprintf(expected, sizeof expected, format, static_cast<void*>(stream.get()), name);
        EXPECT_EQ(stream->get_description(), std::string(expected).substr(0, 31));
    }

    Mounted_store store{1000};
    Captured_debug debug;
    std::unique_ptr<Stream> stream = std::make_unique<Stream>();
    Recording_waiter waiter;
};

using PCFile_reading = PCFile;
using PCFile_writing = PCFile;
using PCFile_death_test = PCFile;

TEST(PCFile_slots, are_those_of_every_stream) {
    EXPECT_EQ(vtable_slot<int (Stream::*)(int)>(&Stream::get_data), 12U);
    EXPECT_EQ(vtable_slot(&Stream::_write), 13U);
    EXPECT_EQ(vtable_slot(&Stream::open_read), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::open_write), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::close_read), not_virtual);
    EXPECT_EQ(vtable_slot(&Stream::close_write), not_virtual);
}

TEST_F(PCFile, description_has_name_and_direction_while_a_file_is_open) {
    expect_described("DSPCF(%p)");
    ASSERT_EQ(stream->open_read("a", 1), 0);
    expect_described("DSPCF(%p, %s, r)", "a");
    ASSERT_EQ(stream->open_write("a_long_name_beside_the_address", 1), 0);
    expect_described("DSPCF(%p, %s, w)", "a_long_name_beside_the_address");
    EXPECT_EQ(stream->close_read(), 0);
    expect_described("DSPCF(%p)");
    EXPECT_EQ(stream->close_write(), 0);
    stream->set_description("something else");
    EXPECT_EQ(stream->close_read(), 4);
    expect_described("DSPCF(%p)");
    stream->set_description("something else");
    EXPECT_EQ(stream->close_write(), 4);
    expect_described("DSPCF(%p)");
    EXPECT_EQ(debug.text(), "PCF read not open\nPCF write not open\n");
}

// ---- Opening for reading ----

TEST_F(PCFile_reading, opens_once_and_starts_at_position_0) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    EXPECT_EQ(stream->get_data(4), 1);
    EXPECT_EQ(stream->get_read_position(), 4U);
    EXPECT_EQ(stream->open_read("a", 1), 4);
    EXPECT_EQ(stream->get_read_position(), 0U); // on purpose
    EXPECT_EQ(stream->close_read(), 0);
    ASSERT_EQ(stream->open_read("a", 1), 0);
    EXPECT_EQ(stream->get_data(2), 1);
    EXPECT_EQ(stream->get_read_position(), 2U);
    EXPECT_EQ(buffered(*stream), "abcdab");
}

TEST_F(PCFile, already_open_is_checked_before_anything_else) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    ASSERT_EQ(stream->open_write("b", 1), 0);
    Replaced_store_calls calls;
    EXPECT_EQ(stream->open_read("missing", 1), 4);
    EXPECT_EQ(stream->open_write("c", 1), 4);
    EXPECT_THAT(calls.calls, IsEmpty());
}

TEST_F(PCFile_reading, a_missing_file_or_store_is_3) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    EXPECT_EQ(stream->get_data(4), 1);
    EXPECT_EQ(stream->close_read(), 0);
    EXPECT_EQ(stream->open_read("missing", 1), 3);
    EXPECT_EQ(stream->get_read_position(), 0U);
    EXPECT_EQ(stream->open_read("missing", -1), 3);
    pcfUnmount();
    EXPECT_EQ(stream->open_read("a", 1), 3);
    expect_described("DSPCF(%p)");
}

TEST_F(PCFile_reading, makes_the_given_number_of_attempts_100_ms_apart_while_the_store_is_busy) {
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) { return call == "OpenRead a 0" ? Answer(1) : std::nullopt; };
    const Replaced_delays delays;
    EXPECT_EQ(stream->open_read("a", 3), 4);
    EXPECT_EQ(calls.calls_of("OpenRead").size(), 3U);
    EXPECT_THAT(delays.units(), ElementsAre(100, 100));
    EXPECT_EQ(stream->open_read("a", 1), 4);
    EXPECT_EQ(calls.calls_of("OpenRead").size(), 4U);
    EXPECT_EQ(delays.count, 2);
    expect_described("DSPCF(%p)");
}

TEST_F(PCFile_reading, a_negative_number_of_attempts_opens_nothing) {
    Replaced_store_calls calls;
    EXPECT_EQ(stream->open_read("a", -1), 4);
    EXPECT_THAT(calls.calls_of("OpenRead"), IsEmpty());
}

TEST_F(PCFile_reading, attempts_of_0_try_without_limit_and_without_delay) {
    Replaced_store_calls calls;
    int busy = 1000;
    calls.answer = [&busy](const std::string& call) {
        return call == "OpenRead a 0" && --busy >= 0 ? Answer(1) : std::nullopt;
    };
    const Replaced_delays delays;
    EXPECT_EQ(stream->open_read("a", 0), 0);
    EXPECT_EQ(calls.calls_of("OpenRead").size(), 1001U);
    EXPECT_EQ(delays.count, 0);
}

TEST_F(PCFile_reading, opens_when_another_reader_has_closed_its_file) {
    ASSERT_EQ(pcfOpenRead("a", 0, nullptr), 0);
    const Replaced_delays delays([](std::size_t count) {
        if (count == 2)
            pcfCloseRead(0);
    });
    EXPECT_EQ(stream->open_read("a", 5), 0);
    EXPECT_EQ(delays.count, 2);
}

TEST_F(PCFile_reading, returns_other_codes_of_the_store) {
    Replaced_store_calls calls;
    for (const int code : {2, 17, -5}) {
        calls.answer = [code](const std::string& call) { return call == "OpenRead a 0" ? Answer(code) : std::nullopt; };
        EXPECT_EQ(stream->open_read("a", 3), code);
    }
    EXPECT_EQ(calls.calls_of("OpenRead").size(), 3U);
    expect_described("DSPCF(%p)");
}

// ---- Reading ----

TEST_F(PCFile_reading, reads_pieces_of_at_most_32_bytes) {
    const std::string content = numbered(150);
    store.make_file("b", content);
    ASSERT_EQ(stream->open_read("b", 1), 0);
    Replaced_store_calls calls;
    EXPECT_EQ(stream->get_data(100), 1);
    EXPECT_THAT(calls.calls, ElementsAre("Read 32 0", "Read 32 0", "Read 32 0", "Read 4 0"));
    EXPECT_EQ(buffered(*stream), content.substr(0, 100));
    EXPECT_EQ(stream->get_data(100), 0); // the end, with the rest in the ring
    EXPECT_EQ(buffered(*stream), content);
    EXPECT_EQ(stream->rx_count, 150U);
    EXPECT_EQ(stream->get_read_position(), 150U);
    EXPECT_EQ(stream->close_read(), 0);
    EXPECT_EQ(calls.calls.back(), "CloseRead 0");
}

TEST_F(PCFile_reading, of_nothing_succeeds_at_once) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    Replaced_store_calls calls;
    EXPECT_EQ(stream->get_data(0), 1);
    EXPECT_EQ(stream->get_data(-1), 1);
    EXPECT_THAT(calls.calls, IsEmpty());
}

TEST_F(PCFile_reading, without_a_file_is_reported) {
    EXPECT_EQ(stream->get_data(0), 0);
    EXPECT_EQ(stream->get_data(5), 0);
    EXPECT_EQ(debug.text(), "PCF read not open\nPCF read not open\n");
}

TEST_F(PCFile_reading, fails_when_the_store_does_not_set_the_result) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    Replaced_store_calls calls;
    calls.answer = [](const std::string&) { return Answer(3); }; // leaves the result unchanged
    EXPECT_EQ(stream->get_data(3), 0);
    EXPECT_EQ(buffered(*stream), "");
    EXPECT_EQ(stream->rx_count, 0U);
}

TEST_F(PCFile_reading, drops_what_does_not_fit_the_ring) {
    pcfUnmount();
    ASSERT_TRUE(pcfMount(store.folder.path().c_str(), 10000));
    const std::string content = numbered(4300);
    store.make_file("b", content);
    ASSERT_EQ(stream->open_read("b", 1), 0);
    EXPECT_EQ(stream->get_data(4250), 1);
    EXPECT_EQ(take_buffered(*stream), content.substr(0, 4200));
    EXPECT_EQ(stream->rx_count, 4250U);
    EXPECT_EQ(stream->get_data(50), 1);
    EXPECT_EQ(buffered(*stream), content.substr(4250));
}

TEST_F(PCFile_reading, and_writing_allocate_nothing) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    ASSERT_EQ(stream->open_write("b", 1), 0);
    const Allocation_counter allocations;
    EXPECT_EQ(stream->get_data(6), 1);
    EXPECT_EQ(write_text(*stream, "abc"), 3);
    EXPECT_EQ(allocations.count(), 0U);
}

TEST_F(PCFile_reading, a_close_that_the_store_refuses_returns_its_code) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    {
        Replaced_store_calls calls;
        calls.answer = [](const std::string&) { return Answer(7); };
        EXPECT_EQ(stream->close_read(), 7);
    }
    EXPECT_EQ(stream->close_read(), 4); // it counts as closed
    EXPECT_EQ(pcfCloseRead(0), 0);
}

// ---- Opening for writing ----

TEST_F(PCFile_writing, creates_a_file_or_appends_to_it) {
    Replaced_store_calls calls;
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, "new"), 3);
    EXPECT_EQ(stream->close_write(), 0);
    EXPECT_EQ(store.content_of("b"), "new");
    ASSERT_EQ(stream->open_write("a", 1), 0);
    EXPECT_TRUE(stream->printf("%s", "ghi"));
    EXPECT_EQ(stream->close_write(), 0);
    EXPECT_EQ(store.content_of("a"), "abcdefghi");
    EXPECT_EQ(stream->tx_count, 6U);
    EXPECT_THAT(calls.calls_of("CreateWrite"), ElementsAre("CreateWrite b"));
    EXPECT_THAT(calls.calls_of("OpenWrite"), ElementsAre("OpenWrite a"));
    EXPECT_THAT(calls.calls_of("Write"), ElementsAre("Write 3 -1", "Write 3 -1"));
    EXPECT_THAT(calls.calls_of("CloseWrite"), ElementsAre("CloseWrite -1", "CloseWrite -1"));
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_writing, a_second_opening_is_refused_and_reported) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(stream->open_write("c", 1), 4);
    EXPECT_EQ(debug.text(), "PCF Datastream Failed 217\n");
    EXPECT_EQ(write_text(*stream, "x"), 1); // into the first
}

TEST_F(PCFile_writing, without_a_store_is_refused_and_reported) {
    pcfUnmount();
    EXPECT_EQ(stream->open_write("b", 1), 3);
    EXPECT_EQ(debug.text(), "PCF Datastream Failed 222\n");
}

TEST_F(PCFile_writing, without_free_space_is_refused_and_reported_and_sends_an_event) {
    store.make_file("b", std::string(994, 'x'));
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    EXPECT_EQ(stream->open_write("c", 1), 4);
    EXPECT_EQ(debug.text(), "PCF Datastream Failed 232 (c 1000 1000)\n");
    EXPECT_THAT(waiter.codes(), ElementsAre(1));
    EXPECT_FALSE(pcfExists("c"));
}

TEST_F(PCFile_writing, in_a_store_that_does_not_know_its_free_space_is_refused_and_reported_and_sends_an_event) {
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) { return call == "Info" ? Answer(0) : std::nullopt; };
    EXPECT_EQ(stream->open_write("c", 1), 4);
    EXPECT_EQ(debug.text(), "PCF Datastream Failed 232 (c 0 0)\n");
    EXPECT_THAT(waiter.codes(), ElementsAre(1));
}

TEST_F(PCFile_writing, makes_the_given_number_of_attempts_100_ms_apart_and_reports_the_failed_call) {
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) {
        return call == "OpenWrite a" || call == "CreateWrite b" ? Answer(0) : std::nullopt;
    };
    const Replaced_delays delays;
    EXPECT_EQ(stream->open_write("a", 3), 1);
    EXPECT_THAT(delays.units(), ElementsAre(100, 100));
    EXPECT_EQ(calls.calls_of("OpenWrite").size(), 3U);
    EXPECT_EQ(stream->open_write("b", 2), 1);
    EXPECT_EQ(delays.count, 3);
    EXPECT_EQ(calls.calls_of("CreateWrite").size(), 2U);
    EXPECT_EQ(stream->open_write("a", 0), 1);
    EXPECT_EQ(stream->open_write("a", -7), 1);
    EXPECT_EQ(delays.count, 3);
    EXPECT_EQ(debug.text(), "PCFile_data_stream::open_write(a, 3) failed @ 247\n"
                            "PCFile_data_stream::open_write(b, 2) failed @ 250\n"
                            "PCFile_data_stream::open_write(a, 0) failed @ 237\n"
                            "PCFile_data_stream::open_write(a, -7) failed @ 237\n");
    expect_described("DSPCF(%p)");
    EXPECT_EQ(stream->close_write(), 4);
}

TEST_F(PCFile_writing, checks_before_each_attempt_whether_the_file_exists) {
    ASSERT_TRUE(pcfCreateWrite("b", nullptr)); // another writer creates it
    EXPECT_TRUE(pcfCloseWrite(-1));
    ASSERT_TRUE(pcfRemove("b"));
    ASSERT_TRUE(pcfCreateWrite("c", nullptr)); // the store is busy
    const Replaced_delays delays([this](std::size_t count) {
        if (count == 2) {
            EXPECT_TRUE(pcfCloseWrite(-1));
            store.make_file("b", "created meanwhile ");
        }
    });
    Replaced_store_calls calls;
    ASSERT_EQ(stream->open_write("b", 5), 0);
    EXPECT_EQ(calls.calls_of("OpenWrite").size(), 1U);
    EXPECT_EQ(write_text(*stream, "and appended to"), 15);
    EXPECT_EQ(stream->close_write(), 0);
    EXPECT_EQ(store.content_of("b"), "created meanwhile and appended to");
}

// ---- Writing ----

TEST_F(PCFile_writing, without_a_file_is_refused) {
    EXPECT_EQ(write_text(*stream, "abc"), -4);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_writing, gets_the_free_space_of_the_store_only_when_it_opens) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    Replaced_store_calls calls;
    for (int i = 0; i < 99; ++i)
        EXPECT_EQ(write_text(*stream, "0123456789"), 10);
    EXPECT_THAT(calls.calls_of("Info"), IsEmpty());
    EXPECT_EQ(store.free(), 1000U - 6 - 990);
    EXPECT_EQ(write_text(*stream, "abcd"), 4); // to the last byte
    EXPECT_EQ(store.free(), 0U);
    EXPECT_EQ(stream->tx_count, 994U);
}

TEST_F(PCFile_writing, of_what_does_not_fit_closes_the_file_and_notifies_the_waiters) {
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, std::string(986, 'x')), 986);
    EXPECT_EQ(write_text(*stream, std::string(64, 'y')), -4); // with 8 bytes free
    EXPECT_EQ(debug.text(), "PCF full\n");
    EXPECT_THAT(waiter.codes(), ElementsAre(1));
    expect_described("DSPCF(%p)");
    EXPECT_EQ(write_text(*stream, "z"), -4);
    EXPECT_EQ(stream->close_write(), 4);
    EXPECT_EQ(stream->tx_count, 986U);
    EXPECT_EQ(store.content_of("b"), std::string(986, 'x'));
}

TEST_F(PCFile_writing, of_what_does_not_fit_is_tolerated_up_to_10_free_bytes) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, std::string(984, 'x')), 984);
    EXPECT_EQ(write_text(*stream, std::string(11, 'y')), -4);
}

TEST_F(PCFile_death_test, writing_what_does_not_fit_with_more_than_10_bytes_free_ends_the_process) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, std::string(954, 'x')), 954); // 40 are free
    EXPECT_EXIT(
        {
            Debug::Print::set_sink(nullptr);
            write_text(*stream, std::string(64, 'y'));
        },
        KilledBySignal(SIGABRT),
        "^PCF full\nABORT!!! PCFile_data_stream::_write pcf_info.free > 10\n(qemu: .*\n)?$"); // the emulator adds a
                                                                                              // line
    EXPECT_EQ(write_text(*stream, std::string(29, 'z')), 29);
    EXPECT_EXIT(write_text(*stream, std::string(12, 'y')), KilledBySignal(SIGABRT), ""); // with 11 free
    EXPECT_EQ(write_text(*stream, "z"), 1);
    EXPECT_EQ(write_text(*stream, std::string(12, 'y')), -4); // with 10
}

TEST_F(PCFile_writing, a_short_write_is_reported_closes_the_file_and_sends_an_event) {
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, "abc"), 3);
    {
        const Limited_file_size limit(8); // the disk is full before the store is
        EXPECT_EQ(write_text(*stream, "defghijk"), 5);
    }
    EXPECT_THAT(debug.text(), HasSubstr("PCF did not write 8!=5\n"));
    EXPECT_THAT(waiter.codes(), ElementsAre(0));
    EXPECT_EQ(stream->tx_count, 3U); // a short write is not counted
    expect_described("DSPCF(%p)");
    EXPECT_EQ(write_text(*stream, "z"), -4);
    EXPECT_EQ(store.content_of("b"), "abcdefgh");
}

TEST_F(PCFile_writing, a_short_write_leaves_the_known_free_space_unchanged) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    {
        Replaced_store_calls calls;
        calls.answer = [](const std::string& call) { return call == "Write 100 -1" ? Answer(60) : std::nullopt; };
        EXPECT_EQ(write_text(*stream, std::string(100, 'x')), 60);
        calls.answer = [](const std::string& call) {
            return call == "Info" ? Answer(1) : std::nullopt;
        }; // sets nothing
        ASSERT_EQ(stream->open_write("b", 1), 0);
    }
    EXPECT_EQ(write_text(*stream, std::string(994, 'x')), 994);
}

/// The order of closing, message and event after a write that failed.
TEST_F(PCFile_writing, closes_before_the_event_of_a_short_write_and_after_the_event_of_a_full_store) {
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    std::size_t events_at_close = 99;
    std::string printed_at_close;
    Replaced_store_calls calls;
    calls.answer = [&](const std::string& call) -> Answer {
        if (call == "Write 2 -1")
            return 1;
        if (call == "CloseWrite -1") {
            events_at_close = waiter.events().size();
            printed_at_close = debug.text();
        }
        return std::nullopt;
    };
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, "xy"), 1);
    EXPECT_EQ(events_at_close, 0U);
    EXPECT_EQ(printed_at_close, "PCF did not write 2!=1\n");
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EQ(write_text(*stream, std::string(990, 'x')), 990);
    EXPECT_EQ(write_text(*stream, "12345"), -4);
    EXPECT_EQ(events_at_close, 2U); // the first write's and this one's
    EXPECT_EQ(printed_at_close, "PCF did not write 2!=1\nPCF full\n");
}

TEST_F(PCFile_writing, a_failed_close_is_reported) {
    ASSERT_EQ(stream->open_write("b", 1), 0);
    {
        Replaced_store_calls calls;
        calls.answer = [](const std::string& call) { return call == "CloseWrite -1" ? Answer(0) : std::nullopt; };
        EXPECT_EQ(stream->close_write(), 4);
    }
    EXPECT_EQ(debug.text(), "PCF failed to close\n");
    EXPECT_EQ(stream->close_write(), 4); // it counts as closed
    EXPECT_TRUE(pcfCloseWrite(-1));
}

TEST_F(PCFile_writing, and_reading_work_at_the_same_time) {
    ASSERT_EQ(stream->open_read("a", 1), 0);
    ASSERT_EQ(stream->open_write("a", 1), 0);
    EXPECT_EQ(write_text(*stream, "ghi"), 3);
    EXPECT_EQ(stream->get_data(9), 1);
    EXPECT_EQ(buffered(*stream), "abcdefghi");
}

// ---- Destroying ----

TEST_F(PCFile_death_test, destroying_it_with_a_file_open_ends_the_process) {
    const auto destroy = [this] {
        Debug::Print::set_sink(nullptr);
        stream.reset();
    };
    ASSERT_EQ(stream->open_write("b", 1), 0);
    EXPECT_EXIT(destroy(), ExitedWithCode(-155 & 0xFF), "^Destruct while files are write open!!$");
    ASSERT_EQ(stream->open_read("a", 1), 0);
    EXPECT_EXIT(destroy(), ExitedWithCode(-155 & 0xFF), "^Destruct while files are read open!!$");
    EXPECT_EQ(stream->close_write(), 0);
    EXPECT_EXIT(destroy(), ExitedWithCode(-155 & 0xFF), "^Destruct while files are read open!!$");
}

} // namespace
