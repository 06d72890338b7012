// How a child ends, what waits for it, and that nothing is left afterwards.

#include <glue/data_stream/Process_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/faults/Replaced_process_calls.h>
#include <support/faults/Signal_disposition.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Child_program.h>
#include <support/processes/processes.h>
#include <support/streams/destruction.h>

#include <platform/Debug.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;

constexpr unsigned category = 111;
/// A time limit that only a stream that hangs exceeds.
constexpr auto generous = std::chrono::seconds(20);

bool no_detached_threads() {
    return threads_named("CWT").empty();
}

/// Checks that nothing is left of a child when a test has ended. Collects the messages of the stream.
struct Process_data_stream_end : testing::Test {
    Process_data_stream_end() { Debug::Print::enable(category, true); }
    ~Process_data_stream_end() override {
        Debug::Print::enable(category, false);
        EXPECT_TRUE(eventually(no_children)) << "a child is left";
        EXPECT_TRUE(eventually([] { return threads_named("PDS").empty() && no_detached_threads(); }));
        EXPECT_EQ(open_descriptors(), descriptors_before);
    }

    const int descriptors_before = open_descriptors();
    Captured_debug debug;
};

/// Prints its process id. Ignores the end of its input and every signal that can be ignored.
const char* const stubborn = "trap '' HUP INT TERM PIPE; echo $$; exec sleep 1000";

int number(const std::string& text) {
    return std::atoi(text.c_str());
}

bool is_alive(int pid) {
    return pid > 0 && kill(pid, 0) == 0;
}

// ---- Waiting for the end ----

TEST_F(Process_data_stream_end, join_without_limit_waits_for_it) {
    const Stopwatch watch;
    Process_data_stream stream(nullptr, Child_program({"sleep", "0.2"}), nullptr);
    EXPECT_EQ(stream.join(-1), 0);
    EXPECT_GE(watch.elapsed(), milliseconds(200));
    EXPECT_TRUE(no_children());
    EXPECT_FALSE(stream.is_running());
    EXPECT_FALSE(stream.is_finished());
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(stream.join(-1), -1) << "joined already";
}

TEST_F(Process_data_stream_end, join_ends_the_input) {
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_EQ(stream.join(20000), 0);
    EXPECT_TRUE(no_children());
    EXPECT_EQ(write_bytes(stream, "a"), -1);
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Process_data_stream_end, join_with_a_limit_returns_when_the_child_ends_earlier) {
    const Stopwatch watch;
    Process_data_stream stream(nullptr, Child_program({"sleep", "0.05"}), nullptr);
    EXPECT_EQ(stream.join(60000), 0);
    EXPECT_LT(watch.elapsed(), std::chrono::seconds(40));
    EXPECT_TRUE(no_children());
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Process_data_stream_end, join_with_a_limit_leaves_a_child_that_does_not_end_to_a_detached_thread) {
    Process_data_stream stream(nullptr, shell(stubborn), nullptr);
    const int pid = number(line_of(stream));
    const Stopwatch watch;
    EXPECT_EQ(stream.join(30), 0);
    EXPECT_GE(watch.elapsed(), milliseconds(30));
    EXPECT_FALSE(stream.is_running());

    int printed_pid = 0;
    unsigned long printed_ms = 0;
    char rest = 0;
    const std::string text = debug.text();
    EXPECT_EQ(std::sscanf(text.c_str(), "couldn't delete child %d after %lu.  Spawning detached thread to wait%c",
                          &printed_pid, &printed_ms, &rest),
              3)
        << text;
    EXPECT_NE(text.find(".  Spawning"), std::string::npos) << "two blanks";
    EXPECT_EQ(rest, '\n');
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_EQ(printed_pid, pid);
    EXPECT_GE(printed_ms, 30UL);

    EXPECT_TRUE(eventually([] { return threads_named("CWT").size() == 1; }));
    EXPECT_TRUE(is_alive(pid));
    send_signal(pid, SIGKILL); // and the detached thread reaps it
}

TEST_F(Process_data_stream_end, join_of_no_time_checks_once) {
    Replaced_process_calls calls;
    std::atomic<int> checks{0};
    calls.waitpid = [&](pid_t pid, int options) {
        if (options == WNOHANG) {
            ++checks;
            return 0;
        }
        return original_waitpid(pid, nullptr, options);
    };
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_EQ(stream.join(0), 0);
    EXPECT_EQ(checks, 1);
    EXPECT_NE(debug.text().find("Spawning detached thread"), std::string::npos);
    EXPECT_TRUE(eventually(no_children)) << "the detached thread does not reap it";
    EXPECT_TRUE(eventually(no_detached_threads)); // they use the replaced call
}

TEST_F(Process_data_stream_end, join_reports_a_child_that_the_system_has_reaped) {
    const Signal_disposition system_reaps(SIGCHLD, SIG_IGN);
    Process_data_stream stream(nullptr, shell("exit 0"), nullptr);
    EXPECT_TRUE(eventually([&] { return stream.is_finished() && no_children(); }));
    EXPECT_EQ(stream.join(-1), 0);
    EXPECT_EQ(debug.text(), "Process_data_stream::join (b): No child processes\n");
    ASSERT_TRUE(stream.run(shell("exit 0"), nullptr));
    EXPECT_TRUE(eventually([&] { return stream.is_finished() && no_children(); }));
    EXPECT_EQ(stream.join(1000), 0);
    EXPECT_EQ(debug.text(), "Process_data_stream::join (b): No child processes\n"
                            "Process_data_stream::join (a): No child processes\n");
}

TEST_F(Process_data_stream_end, join_continues_to_wait_after_a_signal) {
    Replaced_process_calls calls;
    int interruptions = 0;
    calls.waitpid = [&](pid_t pid, int options) {
        if (interruptions++ < 3) {
            errno = EINTR;
            return -1;
        }
        return original_waitpid(pid, nullptr, options);
    };
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_EQ(stream.join(-1), 0);
    EXPECT_TRUE(no_children());
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Process_data_stream_end, join_is_silent_when_the_category_is_off) {
    Debug::Print::enable(category, false);
    Process_data_stream stream(nullptr, shell(stubborn), nullptr);
    const int pid = number(line_of(stream));
    EXPECT_EQ(stream.join(0), 0);
    EXPECT_EQ(debug.text(), "");
    send_signal(pid, SIGKILL);
}

TEST_F(Process_data_stream_end, closed_output_finishes_the_stream_of_a_child_that_continues) {
    Process_data_stream stream(nullptr, shell("echo $$; exec >&-; exec sleep 1000"), nullptr);
    const int pid = number(line_of(stream));
    EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
    EXPECT_FALSE(stream.is_running());
    EXPECT_EQ(write_bytes(stream, "a"), -1);
    EXPECT_TRUE(is_alive(pid));
}

TEST_F(Process_data_stream_end, a_grandchild_that_has_the_output_keeps_the_stream_running_but_does_not_delay_its_end) {
    int grandchild = 0;
    const Stopwatch watch;
    {
        Process_data_stream stream(nullptr, shell("sleep 1000 & echo $!"), nullptr);
        grandchild = number(line_of(stream));
        EXPECT_TRUE(stream.is_running());
    }
    EXPECT_LT(watch.elapsed(), generous);
    EXPECT_TRUE(is_alive(grandchild));
    send_signal(grandchild, SIGKILL);
}

// ---- Ending a child ----

TEST_F(Process_data_stream_end, kill_ends_a_child_that_ignores_everything_else) {
    Process_data_stream stream(nullptr, shell(stubborn), nullptr);
    const int pid = number(line_of(stream));
    const Stopwatch watch;
    stream.kill();
    EXPECT_TRUE(eventually(no_children));
    EXPECT_FALSE(is_alive(pid));
    EXPECT_LT(watch.elapsed(), generous);
    EXPECT_FALSE(stream.is_running());
    EXPECT_FALSE(stream.is_finished());
    EXPECT_TRUE(stream.run(echo(), nullptr)) << "it does not start again";
}

TEST_F(Process_data_stream_end, destruction_ends_a_child_that_ignores_everything_else) {
    int pid = 0;
    {
        Process_data_stream stream(nullptr, shell(stubborn), nullptr);
        pid = number(line_of(stream));
    }
    EXPECT_TRUE(eventually(no_children));
    EXPECT_FALSE(is_alive(pid));
}

TEST_F(Process_data_stream_end, destruction_leaves_a_child_that_does_not_end_at_once_to_a_detached_thread) {
    Replaced_process_calls calls;
    calls.waitpid = [&](pid_t pid, int options) {
        return options == WNOHANG ? 0 : original_waitpid(pid, nullptr, options);
    };
    int pid = 0;
    {
        Process_data_stream stream(nullptr, shell(stubborn), nullptr);
        pid = number(line_of(stream));
    }
    const std::string text = debug.text();
    const std::string begin = "couldn't delete child " + std::to_string(pid) + " after ";
    EXPECT_EQ(text.compare(0, begin.size(), begin), 0) << text;
    EXPECT_TRUE(eventually(no_children));
    EXPECT_TRUE(eventually(no_detached_threads)); // they use the replaced call
}

TEST_F(Process_data_stream_end, kill_sends_the_one_signal_to_the_child_and_only_while_there_is_one) {
    std::vector<std::pair<pid_t, int>> sent;
    Replaced_process_calls calls;
    calls.kill = [&](pid_t pid, int signal) {
        sent.emplace_back(pid, signal);
        return 0;
    };
    Process_data_stream stream(nullptr, shell("echo $$; read line; exit 0"), nullptr);
    const int pid = number(line_of(stream));
    stream.kill();
    stream.kill();
    EXPECT_EQ(sent, (std::vector<std::pair<pid_t, int>>{{pid, SIGKILL}}));
    EXPECT_TRUE(eventually(no_children));
}

TEST_F(Process_data_stream_end, kill_does_not_signal_a_process_with_the_number_of_a_reaped_child) {
    const Signal_disposition system_reaps(SIGCHLD, SIG_IGN);
    bool signalled = false;
    {
        Replaced_process_calls calls;
        calls.kill = [&](pid_t, int) {
            signalled = true;
            return 0;
        };
        Process_data_stream stream(nullptr, shell("exit 0"), nullptr);
        EXPECT_TRUE(eventually([&] { return stream.is_finished() && no_children(); }));
    }
    EXPECT_FALSE(signalled);
}

TEST_F(Process_data_stream_end, destruction_kills_a_child_before_it_can_do_more) {
    const Temporary_folder folder;
    { Process_data_stream stream(nullptr, shell(path_of_echo() + "; touch " + folder.path("ended")), nullptr); }
    EXPECT_TRUE(eventually(no_children));
    EXPECT_FALSE(folder.has("ended"));
}

TEST_F(Process_data_stream_end, destruction_lets_a_detached_child_end_by_itself) {
    const Temporary_folder folder;
    {
        Process_data_stream stream(nullptr, shell(path_of_echo() + "; touch " + folder.path("ended")), nullptr);
        stream.detach();
    }
    EXPECT_TRUE(eventually([&] { return folder.has("ended"); }));
}

// ---- Threads ----

void expect_consecutive_names() {
    {
        Process_data_stream first(nullptr, echo(), nullptr);
        if (!eventually([] { return threads_named("PDS") == std::multiset<std::string>{"PDS0"}; }))
            _exit(1);
        Process_data_stream second(nullptr, echo(), nullptr);
        if (!eventually([] { return threads_named("PDS") == std::multiset<std::string>{"PDS0", "PDS1"}; }))
            _exit(2);
    }
    Process_data_stream third(nullptr, shell(stubborn), nullptr);
    if (!eventually([] { return threads_named("PDS") == std::multiset<std::string>{"PDS2"}; }))
        _exit(3);
    const int pid = number(line_of(third));
    third.join(0);
    if (!eventually([] { return threads_named("CWT").size() == 1; }))
        _exit(4);
    // Killing the first two may have started detached threads, too.
    const int waiter = number(threads_named("CWT").begin()->substr(3));
    if (waiter < 0 || waiter > 2)
        _exit(5);
    send_signal(pid, SIGKILL);
    _exit(0);
}

TEST_F(Process_data_stream_end, threads_are_numbered_one_after_the_other) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(expect_consecutive_names(), testing::ExitedWithCode(0), "");
}

void expect_first_detached_name() {
    Process_data_stream stream(nullptr, shell(stubborn), nullptr);
    const int pid = number(line_of(stream));
    stream.join(0);
    const bool named = eventually([] { return threads_named("CWT") == std::multiset<std::string>{"CWT0"}; });
    send_signal(pid, SIGKILL);
    _exit(named ? 0 : 1);
}

TEST_F(Process_data_stream_end, detached_threads_are_numbered_from_0) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(expect_first_detached_name(), testing::ExitedWithCode(0), "");
}

TEST_F(Process_data_stream_end, a_thousand_streams_leave_nothing) {
    // The fixture checks that nothing is left.
    const Child_program program({"yes"});
    for (int i = 0; i < 1000; ++i) {
        Process_data_stream stream(nullptr, program, nullptr);
        EXPECT_TRUE(stream.is_running());
        if (i % 4 == 0) {
            EXPECT_TRUE(eventually([&] { return stream.bytes_avail() > 0; }));
        }
        if (i % 3 == 0)
            stream.detach(); // ends nevertheless: its output has no reader
    }
}

TEST_F(Process_data_stream_end, output_that_arrives_during_destruction_is_still_reported) {
    auto stream = std::make_unique<Process_data_stream>(nullptr, echo(), nullptr);
    Process_data_stream& its_stream = *stream;
    expect_event_on_its_way_to_arrive(std::move(stream), [&] { write_bytes(its_stream, "!"); });
}

TEST_F(Process_data_stream_end, destruction_while_output_arrives_is_prompt) {
    const Stopwatch watch;
    for (int i = 0; i < 20; ++i) {
        Recording_waiter waiter;
        auto stream = std::make_unique<Process_data_stream>(nullptr, nullptr, nullptr);
        stream->reg_rx_waiter(waiter, false);
        ASSERT_TRUE(stream->run(Child_program({"yes"}), nullptr));
        ASSERT_TRUE(waiter.wait_for(static_cast<std::size_t>(i % 5 + 1)));
        stream.reset();
        for (const int code : waiter.codes())
            EXPECT_TRUE(code == 0 || code == 1);
    }
    EXPECT_LT(watch.elapsed(), generous);
}

TEST_F(Process_data_stream_end, streams_of_several_threads_do_not_disturb_each_other) {
    const auto talk = [](const std::string& word) {
        for (int i = 0; i < 15; ++i) {
            Process_data_stream stream(nullptr, echo(), nullptr);
            write_bytes(stream, word + "\n");
            EXPECT_EQ(line_of(stream), word);
            EXPECT_EQ(stream.join(-1), 0); // waits for ever when another child has the input open
        }
    };
    std::thread one(talk, "one");
    std::thread two(talk, "two");
    talk("three");
    one.join();
    two.join();
}

// ---- Idle streams ----

TEST_F(Process_data_stream_end, idle_stream_does_not_compute) {
    Process_data_stream stream(nullptr, echo(), nullptr);
    EXPECT_TRUE(process_rests());
}

TEST_F(Process_data_stream_end, full_stream_does_not_compute) {
    Process_data_stream stream(nullptr, Child_program({"yes"}), nullptr);
    EXPECT_TRUE(eventually([&] { return stream.bytes_avail() == Data_stream::rx_capacity; }));
    EXPECT_TRUE(process_rests());
}

TEST_F(Process_data_stream_end, finished_stream_does_not_compute) {
    Process_data_stream stream(nullptr, shell("exit 0"), nullptr);
    EXPECT_TRUE(eventually([&] { return stream.is_finished(); }));
    EXPECT_TRUE(process_rests());
}

} // namespace
