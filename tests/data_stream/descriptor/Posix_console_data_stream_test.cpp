// Consoles live in child processes of the test, whose standard input and output are a pseudo terminal.

#include <glue/data_stream/Posix_console_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using Console = std::unique_ptr<Posix_console_data_stream>;

Console make_console(const char* spec = "cons:") {
    return Console(Posix_console_data_stream::create(spec));
}

/// The next key; 0 when there is none.
char key(Data_stream& console) {
    if (!eventually([&] { return console.bytes_avail() > 0; }))
        return 0;
    return take_buffered(console)[0];
}

/// A process that runs `body` with these standard descriptors and calls `exit` with the status that it returns.
class Child {
  public:
    Child(int input, int output, const std::function<int()>& body) {
        std::fflush(nullptr); // the child must not print the parent's buffered text
        pid_ = fork();
        if (pid_ != 0)
            return;
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        std::exit(body());
    }
    ~Child() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Waits for the end of the process. \return the exit status; negative when there is none
    int status() {
        int status = -1;
        const bool ended = eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
        if (ended)
            pid_ = -1;
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t pid_ = -1;
};

struct Posix_console_data_stream_test : testing::Test {
    Pty_pair terminal{Pty_pair::system_settings};
    const termios before = attributes();
    std::unique_ptr<Child> child;

    void run(const std::function<int()>& body) {
        child = std::make_unique<Child>(terminal.slave(), terminal.slave(), body);
    }

    termios attributes() const {
        termios result{};
        EXPECT_EQ(tcgetattr(terminal.slave(), &result), 0);
        return result;
    }
    bool has_attributes(const termios& expected) const {
        const termios now = attributes();
        return now.c_iflag == expected.c_iflag && now.c_oflag == expected.c_oflag && now.c_cflag == expected.c_cflag &&
               now.c_lflag == expected.c_lflag && std::memcmp(now.c_cc, expected.c_cc, sizeof now.c_cc) == 0;
    }
    /// The child shares the test's open terminal, flags included.
    bool is_non_blocking() const { return (fcntl(terminal.slave(), F_GETFL) & O_NONBLOCK) != 0; }

    void expect_terminal_as_before() const {
        EXPECT_TRUE(has_attributes(before));
        EXPECT_FALSE(is_non_blocking());
    }
};

// ---- Making one ----

TEST_F(Posix_console_data_stream_test, is_only_made_from_a_specification_that_begins_with_cons_and_a_colon) {
    for (const char* spec : {"con:", "cons", "", "CONS:", " cons:", "consx:"})
        EXPECT_EQ(Posix_console_data_stream::create(spec), nullptr) << spec;
    run([] { return make_console("cons:") && make_console("cons:whatever") ? 0 : 1; });
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, names_itself) {
    run([] {
        const Console console = make_console();
        char expected[Data_stream::description_size];
        std::snprintf(expected, sizeof expected, "PCDS(%p)",
                      static_cast<void*>(static_cast<Posix_data_stream*>(console.get())));
        return std::strcmp(console->get_description(), expected) == 0 ? 0 : 1;
    });
    EXPECT_EQ(child->status(), 0);
}

// ---- Reading and writing ----

TEST_F(Posix_console_data_stream_test, keys_are_received_at_once_and_not_echoed) {
    run([] {
        const Console console = make_console();
        console->printf("ready");
        while (const char pressed = key(*console)) {
            if (pressed == 'q')
                return 0;
            console->printf("<%c>", pressed);
        }
        return 1;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    terminal.send("a");
    EXPECT_EQ(terminal.receive(3), "<a>");
    terminal.send("\x04"); // which ends the input of a terminal that buffers lines
    EXPECT_EQ(terminal.receive(3), "<\x04>");
    terminal.send("q");
    EXPECT_EQ(child->status(), 0);
    EXPECT_EQ(bytes_ready(terminal.master()), 0);
}

TEST_F(Posix_console_data_stream_test, keys_that_were_pressed_earlier_are_received) {
    terminal.send("k");
    run([] { return key(*make_console()) == 'k' ? 0 : 1; });
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, nothing_can_be_fetched) {
    run([] {
        const Console console = make_console();
        return console->get_data(0) == 1 && console->get_data(1) == 0 && console->get_data(-1) == 0 ? 0 : 1;
    });
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, one_lock_guards_the_ring_and_the_events) {
    run([] {
        const Console console = make_console();
        std::atomic<bool> counted{false};
        std::atomic<bool> notified{false};
        console->set_rx_callback([&] { notified = true; });
        console->lock();
        console->printf("locked");
        std::thread counting([&] {
            console->bytes_avail();
            counted = true;
        });
        const bool ignored_the_lock = eventually([&] { return counted || notified; }, milliseconds(100));
        console->unlock();
        counting.join();
        return !ignored_the_lock && eventually([&] { return notified.load(); }) ? 0 : 1;
    });
    EXPECT_EQ(terminal.receive(6), "locked");
    terminal.send("a");
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, an_idle_console_rests) {
    run([] {
        const Console console = make_console();
        return process_rests() ? 0 : 1;
    });
    EXPECT_EQ(child->status(), 0);
}

// ---- The terminal ----

TEST_F(Posix_console_data_stream_test, switches_lines_and_echo_off_and_nothing_else) {
    run([] {
        const Console console = make_console();
        console->printf("ready");
        return key(*console) ? 0 : 1;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    termios expected = before;
    expected.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    expected.c_cc[VMIN] = 0;
    EXPECT_TRUE(before.c_lflag & ICANON);
    EXPECT_TRUE(before.c_lflag & ECHO);
    EXPECT_TRUE(has_attributes(expected));
    EXPECT_TRUE(is_non_blocking());
    terminal.send("q");
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, destruction_restores_the_terminal) {
    run([] {
        Console console = make_console();
        console.reset();
        std::printf("done");
        std::fflush(stdout);
        std::quick_exit(getchar() == 'q' ? 0 : 1); // runs no handler that could restore it only now
        return 1;
    });
    EXPECT_EQ(terminal.receive(4), "done");
    expect_terminal_as_before();
    terminal.send("q\n"); // standard input waits for a line, and no thread reads it
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, destruction_ends_the_thread_before_it_restores_the_terminal) {
    Pipe destroy;
    Pipe proceed;
    run([&] {
        Console console = make_console();
        console->set_rx_callback([&, out = console.get()] { // blocks the thread
            out->printf("busy");
            read_exactly(proceed.reading(), 1);
        });
        console->printf("ready");
        read_exactly(destroy.reading(), 1);
        console.reset();
        return 0;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    terminal.send("k");
    EXPECT_EQ(terminal.receive(4), "busy");
    write_all(destroy.writing(), "1");
    EXPECT_FALSE(eventually([&] { return has_attributes(before); }, milliseconds(50)));
    write_all(proceed.writing(), "1");
    EXPECT_EQ(child->status(), 0);
    expect_terminal_as_before();
}

TEST_F(Posix_console_data_stream_test, destruction_leaves_keys_that_the_thread_has_not_read) {
    run([] {
        Console console = make_console();
        console->pause();
        console->printf("ready");
        if (!eventually([] { return bytes_ready(STDIN_FILENO) == 2; }))
            return 1;
        console.reset();
        return getchar() == 'k' ? 0 : 2;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    terminal.send("k\n");
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, destruction_while_keys_arrive_does_not_hang) {
    run([] {
        for (int i = 0; i < 100; ++i)
            make_console();
        return 0;
    });
    for (int i = 0; i < 100; ++i) {
        terminal.send("k");
        std::this_thread::yield();
    }
    EXPECT_EQ(child->status(), 0);
    expect_terminal_as_before();
}

TEST_F(Posix_console_data_stream_test, exit_restores_the_terminal_of_a_console_that_still_exists) {
    run([] {
        static Posix_console_data_stream* console; // never destroyed
        console = Posix_console_data_stream::create("cons:");
        console->printf("ready");
        key(*console);
        return 7;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    EXPECT_FALSE(has_attributes(before));
    terminal.send("x");
    EXPECT_EQ(child->status(), 7);
    expect_terminal_as_before();
}

TEST_F(Posix_console_data_stream_test, exit_restores_what_the_first_of_several_found) {
    run([] {
        static Posix_console_data_stream* consoles[2]; // never destroyed
        for (auto& console : consoles)
            console = Posix_console_data_stream::create("cons:");
        return 7;
    });
    EXPECT_EQ(child->status(), 7);
    expect_terminal_as_before();
}

TEST_F(Posix_console_data_stream_test, exit_leaves_a_restored_terminal_unchanged) {
    run([this] {
        make_console();
        termios changed = attributes();
        changed.c_lflag &= ~static_cast<tcflag_t>(ECHO); // by another part of the program
        return tcsetattr(terminal.slave(), TCSANOW, &changed);
    });
    EXPECT_EQ(child->status(), 0);
    EXPECT_FALSE(attributes().c_lflag & ECHO);
}

TEST_F(Posix_console_data_stream_test, each_of_several_restores_what_it_found) {
    run([] {
        Console outer = make_console();
        Console inner = make_console();
        inner.reset();
        outer->printf("inner");
        if (!key(*outer))
            return 1;
        outer.reset();
        return 0;
    });
    EXPECT_EQ(terminal.receive(5), "inner");
    EXPECT_FALSE(has_attributes(before)); // the outer one still exists
    terminal.send("q");
    EXPECT_EQ(child->status(), 0);
    expect_terminal_as_before();
}

// ---- Without a terminal ----

TEST_F(Posix_console_data_stream_test, a_console_whose_terminal_is_gone_rests) {
    run([this] {
        close(terminal.master()); // the child's copy
        const Console console = make_console();
        console->set_write_buffering(true);
        console->printf("ready");
        if (!eventually([] { return write(STDOUT_FILENO, ".", 1) < 0; }))
            return 1;
        console->printf("lost");
        return process_rests() ? 0 : 2;
    });
    EXPECT_EQ(terminal.receive(5), "ready");
    terminal.hang_up();
    EXPECT_EQ(child->status(), 0);
}

TEST_F(Posix_console_data_stream_test, standard_input_may_be_a_pipe) {
    Pipe input;
    Pipe output;
    ASSERT_EQ(fcntl(input.reading(), F_SETFL, O_APPEND), 0); // a flag that the console must not change
    Child reader(input.reading(), output.writing(), [] {
        const Console console = make_console();
        if (!eventually([&] { return console->bytes_avail() == 3; }))
            return 1;
        write_bytes(*console, take_buffered(*console));
        return process_rests() ? 0 : 2; // also at the end of the input
    });
    write_all(input.writing(), "abc");
    EXPECT_EQ(read_exactly(output.reading(), 3), "abc");
    EXPECT_EQ(fcntl(input.reading(), F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
    input.close_writing();
    EXPECT_EQ(reader.status(), 0);
    EXPECT_EQ(fcntl(input.reading(), F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND);
}

} // namespace
