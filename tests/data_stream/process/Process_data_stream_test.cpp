// Specifications, starting, reading and writing. What the child inherits: Process_data_stream_child_test.cpp. Its end:
// Process_data_stream_end_test.cpp.

#include <glue/data_stream/Process_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Recording_waiter.h>
#include <support/faults/Limited_descriptors.h>
#include <support/faults/No_new_threads.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Replaced_process_calls.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Child_program.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned category = 111;
constexpr unsigned ring_size = Data_stream::rx_capacity;

/// A category of the debug printer that is on for a scope.
struct Enabled_category {
    Enabled_category() { Debug::Print::enable(category, true); }
    ~Enabled_category() { Debug::Print::enable(category, false); }
};

/// Random bytes, in a file that a child can print.
struct Random_file {
    std::string bytes;
    Temporary_folder folder;
    std::string path;

    explicit Random_file(std::size_t size) : bytes(Random().bytes(size)), path(folder.make_file("bytes", bytes)) {}
};

// ---- Specifications ----

struct Process_data_stream_specification : testing::Test {
    module_man modules;
    std::unique_ptr<Process_data_stream> stream;

    bool create(const std::string& spec) {
        stream.reset(Process_data_stream::create(modules, spec.c_str(), nullptr));
        return stream != nullptr;
    }
    std::string output_of_spec(const std::string& spec) { return create(spec) ? output_of(*stream) : "(no stream)"; }
};

TEST_F(Process_data_stream_specification, starts_the_program_with_its_arguments_quoted_or_not) {
    EXPECT_EQ(output_of_spec("exec:\"printf %s: a b\""), "a:b:");
    EXPECT_EQ(output_of_spec("exec:'printf %s: a b'"), "a:b:");
    EXPECT_EQ(output_of_spec("exec:printf %s: a b"), "a:b:");
}

TEST_F(Process_data_stream_specification, a_closing_quote_may_be_another_or_missing) {
    EXPECT_EQ(output_of_spec("exec:\"printf %s: a b'"), "a:b:");
    EXPECT_EQ(output_of_spec("exec:'printf %s: a b"), "a:b:");
    EXPECT_EQ(output_of_spec("exec:printf %s: a b\""), "a:b:");
}

TEST_F(Process_data_stream_specification, a_command_line_ends_at_its_first_inner_quote) {
    EXPECT_EQ(output_of_spec("exec:printf %s: a 'b c' d"), "a:");
    EXPECT_EQ(output_of_spec("exec:\"printf %s: a \"b\" c\""), "a:");
}

TEST_F(Process_data_stream_specification, is_found_anywhere_in_the_text) {
    EXPECT_EQ(output_of_spec("something, exec:printf %s: a"), "a:");
    EXPECT_EQ(output_of_spec("exec:''exec:printf %s: a"), "a:"); // the first is followed by no command line
}

TEST_F(Process_data_stream_specification, of_another_kind_makes_no_stream_and_prints_nothing) {
    const Captured_descriptor errors(2);
    for (const char* spec : {"", "exec", "exec:", "exec:\"", "exec:''", "Exec:printf", "exec printf", "tcp:4000"})
        EXPECT_FALSE(create(spec)) << spec;
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Process_data_stream_specification, is_split_as_a_shell_would) {
    const Temporary_folder folder;
    folder.make_file("x.one", "");
    folder.make_file("y.one", "");
    setenv("GLUE_TEST_WORDS", "v w", 1);
    EXPECT_EQ(output_of_spec("exec:printf %s: a\\ b \tc"), "a b:c:");
    EXPECT_EQ(output_of_spec("exec:printf %s: $GLUE_TEST_WORDS"), "v:w:");
    EXPECT_EQ(output_of_spec("exec:printf %s: ~root"), "/root:");
    EXPECT_EQ(output_of_spec("exec:printf %s: $(printf x; printf y)"), "xy:");
    EXPECT_EQ(output_of_spec("exec:printf %s: " + folder.path("*.one")),
              folder.path("x.one") + ":" + folder.path("y.one") + ":");
    unsetenv("GLUE_TEST_WORDS");
}

TEST_F(Process_data_stream_specification, that_cannot_be_split_is_reported_and_makes_no_stream) {
    const Captured_descriptor errors(2);
    EXPECT_FALSE(create("exec:\"sleep 1000 \\\""));
    EXPECT_EQ(errors.text(), "Could not parse sleep 1000 \\\n");
    EXPECT_FALSE(create("exec:yes | head"));
    EXPECT_EQ(errors.text(), "Could not parse sleep 1000 \\\nCould not parse yes | head\n");
    EXPECT_TRUE(eventually(no_children));
}

TEST_F(Process_data_stream_specification, partial_result_of_splitting_is_freed_only_when_memory_ran_out) {
    const Captured_descriptor errors(2);
    Replaced_process_calls calls;
    int frees = 0;
    int result = 0;
    calls.wordfree = [&] { ++frees; };
    calls.wordexp = [&](const char*) { return result; };
    for (result = 1; result <= 5; ++result)
        EXPECT_FALSE(create("exec:printf a"));
    EXPECT_EQ(frees, 1);
    EXPECT_EQ(errors.text(), "Could not parse printf a\nCould not parse printf a\nCould not parse printf a\n"
                             "Could not parse printf a\nCould not parse printf a\n");
}

TEST_F(Process_data_stream_specification, of_a_blank_command_makes_a_stream_that_does_not_run) {
    for (const char* spec : {"exec: ", "exec:'  '", "exec:$GLUE_TEST_UNSET"}) {
        ASSERT_TRUE(create(spec));
        EXPECT_FALSE(stream->is_running());
        EXPECT_FALSE(stream->is_finished());
        EXPECT_EQ(write_bytes(*stream, "a"), -1);
        EXPECT_EQ(stream->join(-1), -1);
    }
}

TEST_F(Process_data_stream_specification, of_a_missing_program_makes_a_stream_that_ends_at_once) {
    ASSERT_TRUE(create("exec:/nowhere/to/be/found"));
    EXPECT_EQ(output_of(*stream), "");
    EXPECT_TRUE(stream->is_finished());
}

TEST_F(Process_data_stream_specification, may_be_long) {
    const std::string word(100000, 'x');
    EXPECT_TRUE(output_of_spec("exec:printf %s " + word) == word);
    EXPECT_FALSE(create(word));
}

TEST_F(Process_data_stream_specification, gives_the_stream_a_module_id) {
    Recording_waiter waiter(modules); // module 1
    ASSERT_TRUE(create("exec:" + path_of_echo()));
    stream->reg_rx_waiter(waiter, false);
    write_bytes(*stream, "a");
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(waiter.sources(), std::vector<std::int16_t>{2});
    stream->dereg_rx_waiter();
}

// ---- Starting ----

struct Process_data_stream_starting : testing::Test {
    const int descriptors_before = open_descriptors();
    Process_data_stream stream{nullptr, nullptr, nullptr};

    bool run(const Child_program& program) { return stream.run(program, nullptr); }
    void expect_not_started() {
        EXPECT_FALSE(stream.is_running());
        EXPECT_FALSE(stream.is_finished());
        EXPECT_EQ(open_descriptors(), descriptors_before);
        EXPECT_EQ(write_bytes(stream, "a"), -1);
        EXPECT_TRUE(eventually(no_children));
        stream.kill(); // must send no signal: there is no child
        EXPECT_EQ(stream.join(0), -1);
        EXPECT_TRUE(run(echo())) << "it does not start again";
    }
};

TEST_F(Process_data_stream_starting, virtual_operations_keep_their_slots) {
    using Class = Process_data_stream;
    EXPECT_EQ(vtable_slot(&Class::init), 2U);
    EXPECT_EQ(vtable_slot(&Class::lock), 3U);
    EXPECT_EQ(vtable_slot(&Class::unlock), 4U);
    const std::size_t fetch = vtable_slot<int (Class::*)(int)>(&Class::get_data);
    EXPECT_EQ(fetch, vtable_slot(&Class::traces_itself) + 1);
    EXPECT_EQ(vtable_slot(&Class::_write), fetch + 1);
    EXPECT_EQ(vtable_slot(&Class::join), not_virtual);
}

TEST_F(Process_data_stream_starting, nothing_runs_before) {
    EXPECT_FALSE(stream.is_running());
    EXPECT_FALSE(stream.is_finished());
    EXPECT_TRUE(stream.has_ended());
    EXPECT_EQ(write_bytes(stream, "a"), -1);
    EXPECT_EQ(stream.join(-1), -1);
    EXPECT_EQ(stream.join(0), -1);
    EXPECT_EQ(stream.get_description(), plain_description(stream));
    EXPECT_EQ(open_descriptors(), descriptors_before);
}

TEST_F(Process_data_stream_starting, nothing_can_be_fetched) {
    EXPECT_EQ(stream.get_data(0), 1);
    EXPECT_EQ(stream.get_data(3), 0);
    EXPECT_EQ(stream.get_data(-1), 0);
    EXPECT_FALSE(stream.bytes_avail(1U));
}

TEST_F(Process_data_stream_starting, runs_what_the_constructor_is_given) {
    Process_data_stream other(nullptr, echo(), nullptr);
    EXPECT_TRUE(other.is_running());
    EXPECT_FALSE(other.is_finished());
}

TEST_F(Process_data_stream_starting, one_that_runs_refuses_another_and_continues) {
    ASSERT_TRUE(run(echo()));
    EXPECT_FALSE(run(shell("echo other")));
    EXPECT_TRUE(stream.is_running());
    write_bytes(stream, "still here\n");
    EXPECT_EQ(line_of(stream), "still here");
}

TEST_F(Process_data_stream_starting, one_that_was_joined_runs_again) {
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(run(shell("echo " + std::to_string(i))));
        EXPECT_EQ(output_of(stream), std::to_string(i) + "\n");
        EXPECT_EQ(stream.join(-1), 0);
        EXPECT_FALSE(stream.is_finished());
    }
    EXPECT_EQ(open_descriptors(), descriptors_before);
}

TEST_F(Process_data_stream_starting, one_that_finished_but_was_not_joined_ends_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ASSERT_TRUE(run(shell("exit 0")));
    output_of(stream);
    EXPECT_EXIT(run(echo()), testing::KilledBySignal(SIGABRT), "terminate");
}

TEST_F(Process_data_stream_starting, nothing_to_run_fails) {
    const char* const no_words[] = {nullptr};
    EXPECT_FALSE(stream.run(no_words, nullptr));
    EXPECT_FALSE(stream.run(nullptr, nullptr));
    expect_not_started();
}

TEST_F(Process_data_stream_starting, without_descriptors_for_both_pipes_fails_and_keeps_none) {
    ASSERT_TRUE(run(echo())); // also for the sanitizer, which opens descriptors when it first checks a class
    stream.join(-1);
    for (int free = 0; free < 4; ++free) {
        const Limited_descriptors limit(free);
        EXPECT_FALSE(run(echo())) << free;
    }
    expect_not_started();
}

TEST_F(Process_data_stream_starting, without_a_free_process_fails_and_keeps_no_descriptor) {
    {
        Replaced_process_calls calls;
        calls.fork = [] {
            errno = EAGAIN;
            return -1;
        };
        EXPECT_FALSE(run(echo()));
    }
    expect_not_started();
}

TEST_F(Process_data_stream_starting, without_a_free_thread_fails_and_leaves_no_child) {
    {
        const No_new_threads no_room;
        EXPECT_FALSE(run(echo()));
    }
    expect_not_started();
}

// ---- Reading what the child prints ----

TEST(Process_data_stream_output, of_a_child_that_ends_at_once_is_received_whole) {
    const Random_file file(1024 * 1024);
    Process_data_stream stream(nullptr, Child_program({"cat", file.path}), nullptr);
    EXPECT_TRUE(output_of(stream) == file.bytes);
    EXPECT_TRUE(stream.is_finished());
}

TEST(Process_data_stream_output, fills_the_ring_to_the_last_byte_and_then_waits) {
    const Random_file file(3 * ring_size);
    Process_data_stream stream(nullptr, Child_program({"cat", file.path}), nullptr);
    ASSERT_TRUE(eventually([&] { return stream.bytes_avail() == ring_size; }));
    stream.drop(1); // so that later pieces wrap in the ring's storage
    ASSERT_TRUE(eventually([&] { return stream.bytes_avail() == ring_size; }));
    EXPECT_TRUE(stream.is_running()) << "a read of 0 bytes into a full ring was treated as the end";
    EXPECT_TRUE(output_of(stream) == file.bytes.substr(1));
}

TEST(Process_data_stream_output, with_a_full_ring_ends_only_when_there_is_free_space) {
    const Random_file file(ring_size);
    Process_data_stream stream(nullptr, Child_program({"cat", file.path}), nullptr);
    ASSERT_TRUE(eventually([&] { return stream.bytes_avail() == ring_size; }));
    Recording_waiter waiter;
    stream.reg_rx_waiter(waiter, true);
    ASSERT_TRUE(waiter.wait_for(3)); // the end of the output was found and ignored
    EXPECT_TRUE(stream.is_running());
    EXPECT_TRUE(output_of(stream) == file.bytes);
    stream.dereg_rx_waiter();
}

TEST(Process_data_stream_output, is_reported_by_an_event) {
    Recording_waiter waiter;
    Process_data_stream stream(nullptr, nullptr, nullptr);
    stream.reg_rx_waiter(waiter, false);
    ASSERT_TRUE(stream.run(shell("echo abc; exec sleep 1000"), nullptr));
    ASSERT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(waiter.codes(), std::vector<int>{0});
    EXPECT_EQ(line_of(stream), "abc");
    stream.dereg_rx_waiter();
}

TEST(Process_data_stream_output, into_a_full_ring_repeats_the_full_event) {
    Recording_waiter waiter;
    Process_data_stream stream(nullptr, nullptr, nullptr);
    stream.reg_rx_waiter(waiter, true); // quiet: only full ones
    ASSERT_TRUE(stream.run(Child_program({"yes"}), nullptr));
    ASSERT_TRUE(waiter.wait_for(5)); // though nothing is consumed
    EXPECT_EQ(waiter.codes().front(), 1);
    EXPECT_EQ(stream.bytes_avail(), ring_size);
    stream.dereg_rx_waiter();
}

/// Gives a test access to the ring and its lock.
struct Open_process_data_stream : Process_data_stream {
    Open_process_data_stream() : Process_data_stream(nullptr, nullptr, nullptr) {}
    ~Open_process_data_stream() override { kill(); } // before this class is destroyed
    Mutex& ring_lock() { return *buffer_lock; }
    /// Called with that lock held.
    unsigned unlocked_bytes_avail() const { return rx_buffer.size(); }
    void fill_ring() {
        const std::lock_guard guard(*buffer_lock);
        while (rx_buffer.push('x')) {
        }
    }
};

TEST(Process_data_stream_output, is_read_in_pieces_of_up_to_1024_bytes) {
    const Random_file file(ring_size);
    Open_process_data_stream stream;
    std::vector<unsigned> pieces;
    stream.set_rx_callback([&, before = 0U]() mutable {
        const unsigned now = stream.unlocked_bytes_avail();
        if (now > before)
            pieces.push_back(now - before);
        before = now;
    });
    ASSERT_TRUE(stream.run(Child_program({"cat", file.path}), nullptr));
    ASSERT_TRUE(eventually([&] { return stream.bytes_avail() == ring_size; }));
    stream.kill();
    EXPECT_EQ(*std::max_element(pieces.begin(), pieces.end()), 1024U);
}

TEST(Process_data_stream_output, is_reported_under_the_lock_of_the_ring) {
    Open_process_data_stream stream;
    std::atomic<int> locked{0};
    std::atomic<int> unlocked{0};
    stream.set_rx_callback([&] { ++(stream.ring_lock().owner_thread() ? locked : unlocked); });
    ASSERT_TRUE(stream.run(shell("echo abc"), nullptr));
    output_of(stream);
    EXPECT_EQ(stream.join(-1), 0);
    EXPECT_GT(locked, 0);
    EXPECT_EQ(unlocked, 0);
    stream.lock();
    EXPECT_NE(stream.ring_lock().owner_thread(), nullptr);
    stream.unlock();
    EXPECT_EQ(stream.ring_lock().owner_thread(), nullptr);
}

TEST(Process_data_stream_output, that_no_longer_fits_the_ring_is_reported_and_lost) {
    const Enabled_category enabled;
    const Captured_debug debug;
    Open_process_data_stream stream;
    Replaced_calls calls;
    calls.select = [&](timeval*) { // after the check of the free space, before the read
        stream.fill_ring();
        return 1;
    };
    ASSERT_TRUE(stream.run(shell("echo abc; exec sleep 1000"), nullptr));
    ASSERT_TRUE(eventually([&] { return debug.text() == "Error: can't write to buffer\n"; })) << debug.text();
    EXPECT_EQ(take_buffered(stream), std::string(ring_size, 'x'));
    stream.kill();
}

TEST(Process_data_stream_output, is_waited_for_ten_milliseconds_at_a_time) {
    Replaced_calls calls;
    std::atomic<std::int64_t> us{0};
    calls.select = [&](timeval* left) {
        us = std::int64_t{left->tv_sec} * 1000000 + left->tv_usec;
        std::this_thread::yield();
        return 0;
    };
    Process_data_stream stream(nullptr, shell("exit 0"), nullptr);
    EXPECT_TRUE(eventually([&] { return us == 10000; })) << us;
    EXPECT_TRUE(stream.is_running()) << "output that was not ready was read";
    stream.kill();
}

TEST(Process_data_stream_output, an_interrupted_wait_ends_the_reading) {
    Replaced_calls calls;
    calls.select = [](timeval*) {
        errno = EINTR;
        return -1;
    };
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
    EXPECT_EQ(write_bytes(stream, "a"), -1);
    stream.kill();
}

TEST(Process_data_stream_output, a_wait_that_fails_with_EAGAIN_is_repeated) {
    Replaced_calls calls;
    std::atomic<int> waits{0};
    calls.select = [&](timeval*) {
        errno = EAGAIN;
        return waits++ < 20 ? -1 : 1;
    };
    Process_data_stream stream(nullptr, shell("echo abc"), nullptr);
    EXPECT_EQ(output_of(stream), "abc\n");
    stream.kill();
}

/// The end of the stream's pipe that carries output: the readable one of the descriptors that were not there before.
int output_descriptor(const std::set<int>& before) {
    for (const int fd : open_descriptor_numbers())
        if (before.count(fd) == 0 && (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY)
            return fd;
    ADD_FAILURE() << "there is none";
    return -1;
}

TEST(Process_data_stream_output, is_waited_for_again_when_a_read_finds_none) {
    Replaced_calls calls;
    calls.select = [](timeval*) { return 1; };
    const auto before = open_descriptor_numbers();
    Process_data_stream stream(nullptr, nullptr, nullptr);
    ASSERT_TRUE(stream.run(shell("read go </dev/null; echo abc; exec sleep 1000"), nullptr));
    const int from_child = output_descriptor(before);
    EXPECT_EQ(fcntl(from_child, F_GETFL) & O_NONBLOCK, 0) << "the reading end is non-blocking";
    make_non_blocking(from_child);
    EXPECT_EQ(line_of(stream), "abc");
    EXPECT_TRUE(stream.is_running());
    stream.kill();
}

TEST(Process_data_stream_output, that_cannot_be_read_ends_the_reading) {
    const auto before = open_descriptor_numbers();
    Process_data_stream stream(nullptr, echo(), nullptr);
    const int from_child = output_descriptor(before);
    const int folder = open("/", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(dup2(folder, from_child), from_child);
    close(folder);
    EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
}

TEST(Process_data_stream_output, on_a_descriptor_too_high_for_select_ends_at_once_and_is_reported_once) {
    const Captured_descriptor standard_error(STDERR_FILENO);
    const Many_descriptors many(1024);
    Process_data_stream stream(nullptr, nullptr, nullptr);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(stream.run(echo(), nullptr));
        EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
        EXPECT_EQ(stream.join(-1), 0);
    }
    // 1024 and 1025 are the ends of the other pipe.
    EXPECT_EQ(standard_error.text(), report_of_high_descriptor(stream.get_description(), 1026));
}

TEST(Process_data_stream_output, on_the_highest_descriptor_that_select_knows_is_received) {
    const Many_descriptors many(1021); // 1021 and 1022 for the input, 1023 for the output
    Process_data_stream stream(nullptr, nullptr, nullptr);
    ASSERT_TRUE(stream.run(shell("echo abc"), nullptr));
    EXPECT_EQ(output_of(stream), "abc\n");
}

// ---- Writing to the child ----

TEST(Process_data_stream_input, reaches_the_child) {
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_EQ(write_bytes(stream, "abc\n"), 4);
    EXPECT_EQ(line_of(stream), "abc");
    EXPECT_TRUE(stream.printf("%d\n", 42));
    EXPECT_EQ(line_of(stream), "42");
}

TEST(Process_data_stream_input, of_a_child_that_does_not_read_never_blocks) {
    Process_data_stream stream(nullptr, Child_program({"sleep", "1000"}), nullptr);
    const std::string too_much(1000000, 'x');
    const int first = write_bytes(stream, too_much);
    EXPECT_GT(first, 0);
    EXPECT_LT(first, 1000000) << "more than a pipe holds";
    errno = 0;
    EXPECT_EQ(write_bytes(stream, too_much), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(write_bytes(stream, "x"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(stream.is_running());
}

TEST(Process_data_stream_input, that_the_child_has_closed_fails_without_a_signal) {
    const Signal_disposition ends_the_process(SIGPIPE, SIG_DFL);
    Process_data_stream stream(nullptr, shell("exec <&-; echo closed; exec sleep 1000"), nullptr);
    ASSERT_EQ(line_of(stream), "closed");
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(write_bytes(stream, "a"), -1);
        EXPECT_EQ(errno, EPIPE);
    }
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    EXPECT_TRUE(stream.is_running());
}

TEST(Process_data_stream_input, leaves_a_signal_that_was_pending_before) {
    Process_data_stream stream(nullptr, shell("exec <&-; echo closed; exec sleep 1000"), nullptr);
    ASSERT_EQ(line_of(stream), "closed");
    sigset_t pipe_signal;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
    pthread_kill(pthread_self(), SIGPIPE);
    EXPECT_EQ(write_bytes(stream, "a"), -1);
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    int received = 0;
    sigwait(&pipe_signal, &received);
    pthread_sigmask(SIG_UNBLOCK, &pipe_signal, nullptr);
}

TEST(Process_data_stream_input, of_a_child_that_has_ended_fails) {
    Process_data_stream stream(nullptr, shell("exit 0"), nullptr);
    ASSERT_TRUE(eventually([&] { return stream.is_finished(); }));
    EXPECT_EQ(write_bytes(stream, "a"), -1);
}

TEST(Process_data_stream_input, is_non_blocking_for_the_child_so_that_cat_ends_at_once) {
    const Captured_descriptor errors(2);
    module_man modules;
    for (const char* spec : {"exec:\"cat -u\"", "exec:'cat -u'", "exec:cat -u"}) {
        const std::unique_ptr<Process_data_stream> stream(Process_data_stream::create(modules, spec, nullptr));
        ASSERT_TRUE(stream);
        EXPECT_EQ(output_of(*stream), "");
    }
    const std::string complaint = "cat: -: Resource temporarily unavailable\n";
    EXPECT_EQ(errors.text(), complaint + complaint + complaint);
}

/// Up to the size that a pipe accepts whole or not at all.
TEST(Process_data_stream_input, of_two_threads_is_not_mixed) {
    constexpr std::size_t size = PIPE_BUF - 1;
    constexpr int count = 200;
    Process_data_stream stream(nullptr, echo(), nullptr);
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b'})
        writers.emplace_back([&stream, letter] {
            for (int i = 0; i < count; ++i)
                EXPECT_TRUE(eventually([&] {
                    const int written = write_bytes(stream, std::string(size, letter));
                    EXPECT_TRUE(written == -1 || written == static_cast<int>(size));
                    return written > 0;
                }));
        });
    const std::string output = output_of(stream, 2 * count * size);
    for (std::thread& writer : writers)
        writer.join();
    ASSERT_EQ(output.size(), 2 * count * size);
    for (std::size_t at = 0; at < output.size(); at += size)
        EXPECT_TRUE(output.substr(at, size) == std::string(size, output[at])) << "at " << at;
}

TEST(Process_data_stream_input, and_output_of_two_threads_lose_and_reorder_nothing) {
    const std::string bytes = Random().bytes(300000);
    Process_data_stream stream(nullptr, echo(), nullptr);
    std::thread writer([&] {
        std::size_t at = 0;
        eventually([&] {
            const int written = write_bytes(stream, bytes.substr(at, 5000));
            at += written > 0 ? static_cast<std::size_t>(written) : 0;
            return at == bytes.size();
        });
    });
    const std::string output = output_of(stream, bytes.size());
    writer.join();
    EXPECT_TRUE(output == bytes);
}

} // namespace
