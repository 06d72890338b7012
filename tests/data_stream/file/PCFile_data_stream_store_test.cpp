// The store as a whole, copying, events, the iterator over the names.

#include <glue/data_stream/PCFile_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recorded_platform_calls.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Replaced_store_calls.h>
#include <support/files/Mounted_store.h>

#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::KilledBySignal;
using Stream = PCFile_data_stream;
using Answer = std::optional<int>;

struct PCFile_test : testing::Test {
    PCFile_test() { EXPECT_EQ(Stream::register_waiter(waiter), 0); }
    ~PCFile_test() override { EXPECT_EQ(Stream::deregister_waiter(waiter), 0); }

    Mounted_store store{2000};
    Captured_debug debug;
    Recording_waiter waiter;
};

using PCFile_store = PCFile_test;
using PCFile_copying = PCFile_test;
using PCFile_iterator = PCFile_test;
using PCFile_lock_death_test = PCFile_test;

// ---- The store ----

TEST_F(PCFile_store, knows_its_files_and_removes_them) {
    store.make_file("a", "abc");
    EXPECT_TRUE(Stream::exists("a"));
    EXPECT_FALSE(Stream::exists("b"));
    EXPECT_EQ(Stream::remove("a"), 0);
    EXPECT_FALSE(Stream::exists("a"));
    EXPECT_EQ(Stream::remove("a"), 1);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_store, that_is_not_mounted_has_no_files_and_is_reported) {
    EXPECT_TRUE(Stream::mounted());
    EXPECT_EQ(Stream::get_directory(), store.folder.path());
    pcfUnmount();
    EXPECT_FALSE(Stream::mounted());
    EXPECT_FALSE(Stream::exists("a"));
    EXPECT_EQ(debug.text(), "PCF Datastream Failed 207 (a)\n");
}

TEST_F(PCFile_store, returns_the_used_bytes_and_the_capacity) {
    store.make_file("a", "abc");
    unsigned used = 7;
    unsigned total = 7;
    EXPECT_TRUE(Stream::get_free_space(used, total));
    EXPECT_EQ(used, 3U);
    EXPECT_EQ(total, 2000U);
    pcfUnmount();
    EXPECT_FALSE(Stream::get_free_space(used, total));
    EXPECT_EQ(used, 0U);
    EXPECT_EQ(total, 0U);
}

// ---- Copying ----

TEST_F(PCFile_copying, writes_the_same_bytes_block_by_block) {
    for (const std::size_t size : {1U, 499U, 500U, 501U, 900U}) {
        const std::string content = numbered(size);
        store.make_file("from", content);
        EXPECT_TRUE(Stream::copy("to", "from")) << size;
        EXPECT_EQ(store.content_of("to"), content);
        EXPECT_EQ(store.content_of("from"), content);
        EXPECT_TRUE(pcfRemove("from"));
    }
    EXPECT_THAT(waiter.codes(), IsEmpty());
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_copying, opens_both_files_again_for_each_block) {
    store.make_file("from", numbered(700));
    store.make_file("to", "old");
    Replaced_store_calls calls;
    EXPECT_TRUE(Stream::copy("to", "from"));
    EXPECT_THAT(calls.calls, ElementsAre("IsMounted", "Exists from", "Exists to", "Remove to", "Remove to", //
                                         "OpenRead from 0", "Read 500 0", "CloseRead 0", "Info",            //
                                         "Exists to", "CreateWrite to", "Write 500 -1", "CloseWrite -1",    //
                                         "OpenRead from 500", "Read 500 0", "CloseRead 0", "Info",          //
                                         "Exists to", "OpenWrite to", "Write 200 -1", "CloseWrite -1",      //
                                         "OpenRead from 700", "Read 500 0", "CloseRead 0"));
}

TEST_F(PCFile_copying, fails_without_store_or_source_and_leaves_the_target_unchanged) {
    store.make_file("to", "old");
    EXPECT_FALSE(Stream::copy("to", "missing"));
    EXPECT_EQ(store.content_of("to"), "old");
    pcfUnmount();
    EXPECT_FALSE(Stream::copy("to", "missing"));
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_copying, of_an_empty_file_fails_with_the_target_removed) {
    store.make_file("from", "");
    store.make_file("to", "old");
    EXPECT_FALSE(Stream::copy("to", "from"));
    EXPECT_FALSE(Stream::exists("to"));
}

TEST_F(PCFile_copying, onto_itself_destroys_the_file) {
    store.make_file("a", "abc");
    EXPECT_FALSE(Stream::copy("a", "a"));
    EXPECT_FALSE(Stream::exists("a"));
}

TEST_F(PCFile_copying, without_free_space_for_a_block_stops_and_sends_an_event) {
    store.make_file("from", numbered(1200));
    EXPECT_FALSE(Stream::copy("to", "from")); // 800 bytes are free: one block
    EXPECT_EQ(store.content_of("to"), numbered(500));
    EXPECT_THAT(waiter.codes(), ElementsAre(1));
    store.make_file("rest", numbered(300));
    EXPECT_FALSE(Stream::copy("to", "from")); // 500 are free: one block to the last byte
    EXPECT_EQ(store.content_of("to"), numbered(500));
    EXPECT_THAT(waiter.codes(), ElementsAre(1, 1));
}

TEST_F(PCFile_copying, in_a_store_that_does_not_know_its_free_space_stops_and_sends_an_event) {
    store.make_file("from", "abc");
    Replaced_store_calls calls;
    calls.answer = [](const std::string& call) { return call == "Info" ? Answer(0) : std::nullopt; };
    EXPECT_FALSE(Stream::copy("to", "from"));
    EXPECT_FALSE(Stream::exists("to"));
    EXPECT_THAT(waiter.codes(), ElementsAre(1));
}

TEST_F(PCFile_copying, tries_a_busy_store_six_times_for_each_block) {
    store.make_file("from", numbered(700));
    Replaced_store_calls calls;
    const Replaced_delays delays;
    calls.answer = [](const std::string& call) { return call == "OpenRead from 500" ? Answer(1) : std::nullopt; };
    EXPECT_FALSE(Stream::copy("to", "from"));
    EXPECT_EQ(calls.calls_of("OpenRead from 500").size(), 6U);
    EXPECT_THAT(delays.units(), ElementsAre(100, 100, 100, 100, 100));
    EXPECT_EQ(store.content_of("to"), numbered(500));

    calls.calls.clear();
    calls.answer = [](const std::string& call) { return call == "CreateWrite to" ? Answer(0) : std::nullopt; };
    EXPECT_FALSE(Stream::copy("to", "from"));
    EXPECT_EQ(calls.calls_of("CreateWrite to").size(), 6U);
    EXPECT_EQ(delays.count, 10);

    // Five failures for each of three readings and each of two writings are not too many.
    int opened = 0;
    calls.answer = [&opened](const std::string& call) -> Answer {
        const bool reads = call.rfind("OpenRead", 0) == 0;
        if (!reads && call != "CreateWrite to" && call != "OpenWrite to")
            return std::nullopt;
        return ++opened % 6 == 0 ? std::nullopt : Answer(reads ? 1 : 0);
    };
    EXPECT_TRUE(Stream::copy("to", "from"));
    EXPECT_EQ(delays.count, 10 + 25);
    EXPECT_EQ(store.content_of("to"), numbered(700));
    EXPECT_THAT(waiter.codes(), IsEmpty());
}

TEST_F(PCFile_copying, fails_at_once_when_the_source_cannot_be_opened_for_another_reason) {
    store.make_file("from", "abc");
    Replaced_store_calls calls;
    const Replaced_delays delays;
    calls.answer = [](const std::string& call) { return call == "OpenRead from 0" ? Answer(2) : std::nullopt; };
    EXPECT_FALSE(Stream::copy("to", "from"));
    EXPECT_EQ(delays.count, 0);
}

TEST_F(PCFile_copying, treats_a_failed_read_as_the_end) {
    store.make_file("from", numbered(700));
    Replaced_store_calls calls;
    int reads = 0;
    calls.answer = [&reads](const std::string& call) {
        return call == "Read 500 0" && ++reads == 2 ? Answer(0) : std::nullopt;
    };
    EXPECT_TRUE(Stream::copy("to", "from"));
    EXPECT_EQ(store.content_of("to"), numbered(500));
}

TEST_F(PCFile_copying, uses_the_count_of_bytes_and_not_the_result_of_a_read) {
    store.make_file("from", "abc");
    Replaced_store_calls calls;
    int reads = 0;
    calls.answer = [&reads](const std::string& call) {
        return call == "Read 500 0" ? Answer(++reads == 1 ? 3 : 0) : std::nullopt; // leaves the result unchanged
    };
    EXPECT_TRUE(Stream::copy("to", "from"));
    EXPECT_EQ(store.content_of("to").size(), 3U);
}

TEST_F(PCFile_copying, a_short_write_fails_it_with_both_files_closed) {
    store.make_file("from", "abc");
    {
        Replaced_store_calls calls;
        calls.answer = [](const std::string& call) { return call == "Write 3 -1" ? Answer(2) : std::nullopt; };
        EXPECT_FALSE(Stream::copy("to", "from"));
    }
    EXPECT_EQ(pcfCloseRead(0), pcf_wrong_state);
    EXPECT_FALSE(pcfCloseWrite(-1));
    EXPECT_THAT(waiter.codes(), IsEmpty());
}

// ---- Events ----

TEST(PCFile_events, carry_the_module_id_that_the_class_was_given) {
    module_man modules;
    Recording_waiter waiter(modules);
    Recorded_platform_calls calls;
    Stream::static_init(modules);
    EXPECT_THAT(calls.permanent_modules, ElementsAre(false));
    EXPECT_EQ(Stream::register_waiter(waiter), 0);
    Stream::send_event(Stream::store_full);
    Stream::send_event(Stream::short_write);
    ASSERT_EQ(waiter.events().size(), 2U);
    EXPECT_THAT(waiter.codes(), ElementsAre(1, 0));
    for (waiter_event event : waiter.events()) {
        EXPECT_EQ(event.source, 2); // the waiter has 1
        EXPECT_TRUE(Stream::is_event(event));
        EXPECT_EQ(event.words[0], 0U);
        EXPECT_EQ(event.words[1], 0U);
        EXPECT_EQ(event.target, 0U);
        event.source = 1;
        EXPECT_FALSE(Stream::is_event(event));
    }
    EXPECT_THAT(calls.sends,
                ElementsAre(Recorded_platform_calls::Send{true, false}, Recorded_platform_calls::Send{true, false}));
    EXPECT_EQ(Stream::deregister_waiter(waiter), 0);
}

TEST(PCFile_events_death_test, without_a_module_id_the_process_ends) {
    EXPECT_EXIT(
        {
            module_man modules;
            Recorded_platform_calls calls;
            calls.failed_init_module = 5;
            Stream::static_init(modules);
        },
        ExitedWithCode(-132 & 0xFF), "^$");
}

TEST(PCFile_events, go_to_up_to_ten_waiters_each_once) {
    std::list<Recording_waiter> waiters(11);
    for (Recording_waiter& waiter : waiters) {
        EXPECT_EQ(Stream::register_waiter(waiter), &waiter == &waiters.back() ? 1 : 0);
        EXPECT_EQ(Stream::register_waiter(waiter), 1); // it is registered, or there are ten
    }
    Stream::send_event(Stream::store_full);
    for (Recording_waiter& waiter : waiters)
        EXPECT_EQ(waiter.events().size(), &waiter == &waiters.back() ? 0U : 1U);
    EXPECT_EQ(Stream::deregister_waiter(waiters.back()), 1);
    EXPECT_EQ(Stream::deregister_waiter(waiters.front()), 0);
    EXPECT_EQ(Stream::deregister_waiter(waiters.front()), 1);
    EXPECT_EQ(Stream::register_waiter(waiters.back()), 0); // there are nine
    Stream::send_event(Stream::store_full);
    EXPECT_EQ(waiters.front().events().size(), 1U);
    EXPECT_EQ(waiters.back().events().size(), 1U);
    for (Recording_waiter& waiter : waiters)
        EXPECT_EQ(Stream::deregister_waiter(waiter), &waiter == &waiters.front() ? 1 : 0);
    EXPECT_EQ(Stream::register_waiter(nullptr), 1);
    EXPECT_EQ(Stream::deregister_waiter(nullptr), 1);
}

TEST(PCFile_events, keep_the_order_of_the_other_waiters) {
    Recording_waiter waiters[4];
    for (Recording_waiter& waiter : waiters)
        EXPECT_EQ(Stream::register_waiter(waiter), 0);
    EXPECT_EQ(Stream::deregister_waiter(waiters[1]), 0);
    Recorded_platform_calls calls;
    std::vector<std::size_t> events_before_each;
    calls.before_send = [&] {
        events_before_each.push_back(waiters[0].events().size() + 10 * waiters[2].events().size() +
                                     100 * waiters[3].events().size());
    };
    Stream::send_event(Stream::store_full);
    EXPECT_THAT(events_before_each, ElementsAre(0U, 1U, 11U));
    for (Recording_waiter& waiter : waiters)
        Stream::deregister_waiter(waiter);
}

TEST_F(PCFile_store, without_free_space_is_reported_before_the_event) {
    store.make_file("a", std::string(2000, 'x'));
    Recorded_platform_calls calls;
    std::string reported;
    calls.before_send = [&] { reported = debug.text(); };
    Stream stream;
    EXPECT_EQ(stream.open_write("b", 1), 4);
    EXPECT_EQ(reported, "PCF Datastream Failed 232 (b 2000 2000)\n");
}

// ---- The lock: a thread that acquires it twice ends the process ----

TEST_F(PCFile_lock_death_test, is_held_while_the_store_reports_its_space_and_writes) {
    store.make_file("a", "");
    const auto call_back_from = [](const std::string& which) {
        Debug::Print::set_sink(nullptr);
        Stream stream;
        EXPECT_EQ(stream.open_write("a", 1), 0);
        Replaced_store_calls calls;
        calls.answer = [&which](const std::string& call) {
            if (call == which)
                Stream::deregister_waiter(nullptr);
            return std::nullopt;
        };
        unsigned ignored = 0;
        Stream::get_free_space(ignored, ignored);
        write_text(stream, "b");
        EXPECT_EQ(stream.close_write(), 0);
    };
    EXPECT_EXIT(call_back_from("Info"), KilledBySignal(SIGABRT), "takes again what it holds");
    EXPECT_EXIT(call_back_from("Write 1 -1"), KilledBySignal(SIGABRT), "takes again what it holds");
}

TEST_F(PCFile_lock_death_test, is_held_while_events_are_sent) {
    const auto call_back = [](auto operation) {
        Debug::Print::set_sink(nullptr);
        Recorded_platform_calls calls;
        calls.before_send = operation;
        Stream::send_event(Stream::store_full);
    };
    Recording_waiter other;
    EXPECT_EXIT(call_back([&other] { Stream::register_waiter(other); }), KilledBySignal(SIGABRT), "takes again");
    EXPECT_EXIT(call_back([&other] { Stream::deregister_waiter(other); }), KilledBySignal(SIGABRT), "takes again");
}

TEST_F(PCFile_store, is_used_by_several_threads) {
    constexpr int rounds = 30;
    std::atomic<bool> done{false};
    std::thread writer([] {
        Stream stream;
        for (int i = 0; i < rounds; ++i) {
            EXPECT_EQ(stream.open_write("log", 1), 0);
            EXPECT_EQ(write_text(stream, "0123456789"), 10);
            EXPECT_EQ(stream.close_write(), 0);
        }
    });
    std::thread reader([&done] {
        Stream stream;
        while (!done) {
            if (stream.open_read("log", 1) != 0)
                continue;
            stream.get_data(1000);
            EXPECT_EQ(take_buffered(stream).size() % 10, 0U);
            EXPECT_EQ(stream.close_read(), 0);
        }
    });
    std::thread observer([&done] {
        unsigned used = 0;
        unsigned total = 0;
        Recording_waiter own;
        while (!done) {
            EXPECT_TRUE(Stream::get_free_space(used, total));
            EXPECT_EQ(Stream::register_waiter(own), 0);
            Stream::send_event(Stream::short_write);
            EXPECT_EQ(Stream::deregister_waiter(own), 0);
        }
    });
    writer.join();
    done = true;
    reader.join();
    observer.join();
    EXPECT_EQ(store.content_of("log").size(), rounds * 10U);
    EXPECT_EQ(store.free(), 2000U - rounds * 10);
}

// ---- The names of the files ----

TEST_F(PCFile_iterator, returns_every_name_once) {
    const std::string longest(39, 'n');
    for (const std::string& name : {std::string("b"), longest, std::string("a")})
        store.make_file(name, "");
    std::vector<std::string> names;
    Stream::Iterator file;
    for (; const char* name = file.get_name(); file.next())
        names.emplace_back(name);
    EXPECT_THAT(names, ElementsAre("a", "b", longest));
    EXPECT_EQ(file.get_name(), nullptr);
    EXPECT_EQ(file.next(), 3U);
    EXPECT_EQ(file.next(), 3U);
    file.reset();
    EXPECT_STREQ(file.get_name(), "a");
    EXPECT_EQ(file.next(), 1U);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(PCFile_iterator, ends_a_name_after_39_characters) {
    store.make_file("a", "");
    Stream::Iterator file;
    Replaced_store_calls calls;
    calls.name_filler = 'x';
    EXPECT_EQ(file.get_name(), std::string(39, 'x'));
}

TEST_F(PCFile_iterator, counts_the_files_when_it_is_reset) {
    Stream::Iterator file;
    store.make_file("a", "");
    EXPECT_EQ(file.get_name(), nullptr);
    EXPECT_EQ(file.next(), 0U);
    file.reset();
    EXPECT_STREQ(file.get_name(), "a");
}

TEST_F(PCFile_iterator, reports_a_name_that_the_store_does_not_know) {
    store.make_file("a", "");
    store.make_file("b", "");
    Stream::Iterator file;
    file.next();
    EXPECT_EQ(Stream::remove("a"), 0);
    EXPECT_EQ(file.get_name(), nullptr);
    EXPECT_EQ(debug.text(), "PCF broken file\n");
}

TEST_F(PCFile_iterator, has_no_files_without_a_store_and_reports_it) {
    store.make_file("a", "");
    pcfUnmount();
    Stream::Iterator file;
    EXPECT_EQ(file.get_name(), nullptr);
    EXPECT_EQ(file.next(), 0U);
    EXPECT_EQ(debug.text(), "PCF cannot iterate\n");
}

} // namespace
