// The live view as its user sees it: the program in a terminal, with an emulator that is not ours on the other side.

#include "model_input.h"
#include "simulated_epochs.h"

#include <monitor/view/Live_view.h>
#include <monitor/view/Pen.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/terminals/Pty_pair.h>
#include <support/terminals/Standard_output.h>
#include <support/terminals/Terminal_session.h>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <regex>
#include <unistd.h>

namespace {

using Arguments = std::vector<std::string>;
using live_view::formatted;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr Terminal_session::Size ordinary{24, 80};
constexpr Terminal_session::Size large{40, 120};
constexpr std::chrono::milliseconds several_updates(600);

const std::string frame = build_frame("~~", le(std::uint32_t{1234}));

std::string simulator_with(const std::string& options) {
    return "exec:" RECEIVER_SIMULATOR " " + options;
}

/// A live view of a link that the test writes.
class Viewed_link {
  public:
    explicit Viewed_link(Terminal_session::Size size = ordinary, const std::string& terminal_type = "screen-256color")
        : fifo_(folder_.make_fifo("link")),
          link_(open(fifo_.c_str(), O_RDWR | O_CLOEXEC)),
          session(RECEIVER_MONITOR, {"--view", "--device", fifo_}, size, terminal_type) {}
    ~Viewed_link() { close(link_); }

    void send(const std::string& bytes) const { write_all(link_, bytes); }
    /// Waits until the view has received all bytes.
    bool has_received_all() const {
        return eventually([&] { return bytes_ready(link_) == 0; });
    }

  private:
    Temporary_folder folder_;
    std::string fifo_;
    int link_;

  public:
    Terminal_session session;
};

/// A live view that an interactive shell runs, which can continue it after a stop.
class Job {
  public:
    /// \param then  what the shell does after the view was stopped and a line was entered
    explicit Job(const std::string& then)
        : fifo_(folder_.make_fifo("link")),
          link_(open(fifo_.c_str(), O_RDWR | O_CLOEXEC)),
          session("/bin/bash",
                  {"--norc", "-i", "-c", "\"$0\" --view --device \"$1\"; echo stopped; read -r; " + then,
                   RECEIVER_MONITOR, fifo_},
                  ordinary) {}
    ~Job() { close(link_); }

    void send(const std::string& bytes) const { write_all(link_, bytes); }
    /// Waits until the view has received all bytes.
    bool has_received_all() const {
        return eventually([&] { return bytes_ready(link_) == 0; });
    }

    /// Shows one frame, and stops.
    void stop() {
        send(frame);
        EXPECT_TRUE(session.shows("~~      1"));
        session.press("\x1a");
        EXPECT_TRUE(session.shows("stopped"));
        EXPECT_FALSE(session.is_on_alternate_screen());
    }

  private:
    Temporary_folder folder_;
    std::string fifo_;
    int link_;

  public:
    Terminal_session session;
};

/// A child process that writes a line to standard error and then acts as a receiver.
class Writing_child {
  public:
    explicit Writing_child(const std::string& words)
        : script_(folder_.make_file("child", "echo '" + words + "' >&2\nexec " RECEIVER_SIMULATOR)) {}
    std::string specification() const { return "exec:sh " + script_; }

  private:
    Temporary_folder folder_;
    std::string script_;
};

/// The number after a label; 0 when there is none.
std::uint64_t number_after(const Terminal_session& session, const char* label) {
    return std::strtoull(session.after(label).c_str(), nullptr, 10);
}

/// Whether the last line shows this note, and the key for help after it.
bool notes(const Terminal_session& session, const std::string& text) {
    const std::string last = session.row(session.size().rows - 1);
    return last.rfind(' ' + text + "   ", 0) == 0 && last.substr(last.size() - 6) == "h help";
}

void expect_same_settings(const termios& before, const termios& after) {
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    for (int i = 0; i < NCCS; ++i)
        EXPECT_EQ(after.c_cc[i], before.c_cc[i]) << i;
}

/// Ends a view with `end` and checks that the terminal is restored.
template <typename End>
int status_with_restored_terminal(End end) {
    Viewed_link link;
    EXPECT_FALSE(link.session.is_on_alternate_screen());
    link.send(frame);
    EXPECT_TRUE(link.session.shows("receiving good frames"));
    EXPECT_TRUE(link.session.is_on_alternate_screen());
    EXPECT_FALSE(link.session.shows_cursor());
    EXPECT_EQ(link.session.settings().c_lflag & (ICANON | ECHO), 0U);
    end(link.session);
    const int status = link.session.status_at_end();
    EXPECT_FALSE(link.session.is_on_alternate_screen());
    EXPECT_TRUE(link.session.shows_cursor());
    EXPECT_THAT(link.session.screen(), Not(HasSubstr("receiving good frames")));
    expect_same_settings(link.session.settings_before(), link.session.settings());
    return status;
}

int status_after_signal(int number) {
    return status_with_restored_terminal([=](Terminal_session& session) { session.signal(number); });
}

} // namespace

// ---- The screen ----

TEST(Live_view, shows_the_receivers_messages) {
    constexpr int epochs = 40;
    const std::regex forty_positions(" 40 positions$");
    simulator::Simulated_receiver::Options options;
    options.seed = 7;
    Received_epochs receiver(options);
    std::string last;
    std::size_t bytes = 0;
    for (int i = 0; i < epochs; ++i)
        bytes += (last = receiver.next_bytes()).size();
    Simulated_epoch epoch(last);
    const auto pg = epoch.get<GNSS_messages::Msg_PG>();
    const auto dp = epoch.get<GNSS_messages::Msg_DP>();
    const auto numbers = epoch.list<GNSS_messages::Msg_SI>();
    const auto elevations = epoch.list<GNSS_messages::Msg_EL>();
    const auto azimuths = epoch.list<GNSS_messages::Msg_AZ>();
    const auto strengths = epoch.list<GNSS_messages::Msg_SS>();

    for (const auto size : {ordinary, large}) {
        Terminal_session session(RECEIVER_MONITOR, {simulator_with("--seed 7 --rate 50 --epochs 40"), "--view"}, size);
        EXPECT_TRUE(session.shows("ended: no more bytes will follow"));
        EXPECT_TRUE(session.shows_in_row(0, " receiver_monitor  exec:"));
        EXPECT_TRUE(session.shows_after(
            "Bytes", formatted("%zu = frames %zu + replies 0 + noise 0 + waiting 0  bad 0", bytes, bytes)));
        EXPECT_TRUE(session.shows_after("Position", formatted("lat %11.7f lon %12.7f deg  hgt %.3f +- %.3f m  type %d",
                                                              pg.get_lat_deg(), pg.get_lon_deg(), pg.get_hgt(),
                                                              static_cast<double>(pg.get_sigma()), pg.get_type())));
        EXPECT_TRUE(session.shows_after("DOP", formatted("H %.2f  V %.2f", static_cast<double>(dp.get_hdop()),
                                                         static_cast<double>(dp.get_vdop()))));
        EXPECT_TRUE(session.until([&] { return std::regex_search(session.after("Scatter"), forty_positions); }));
        EXPECT_TRUE(session.shows_after("~~", "40"));
        EXPECT_TRUE(session.shows_after("PG", "40"));
        for (std::size_t i = 0; i < numbers.size() && i < 21; ++i)
            EXPECT_TRUE(
                session.shows(formatted("%2d %2d %3d %2d", numbers[i], elevations[i], 2 * azimuths[i], strengths[i])));
        EXPECT_TRUE(session.shows_after("Automation", "nothing yet"));
        EXPECT_TRUE(session.shows_after("Log", "none; --log DIR records one"));
        session.press("q");
        EXPECT_EQ(session.status_at_end(), 0);
    }
}

TEST(Live_view, shows_automation_and_replies) {
    Viewed_link link;
    link.send(automation_status(TIM_messages::automation_enabled, 9, false, 0.5F));
    link.send(reply_text("ER", "{4,value missed}"));
    EXPECT_TRUE(link.session.shows("AUTOMATION_ENABLED  heartbeat 9  product 0  curvature 0.50000"));
    EXPECT_TRUE(link.session.shows("error 4: value missed"));
}

TEST(Live_view, shows_sentences) {
    Viewed_link link;
    link.send("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n");
    EXPECT_TRUE(link.session.shows("receiving NMEA sentences, but no frames"));
    EXPECT_TRUE(link.session.shows("$G      1"));
    EXPECT_TRUE(link.session.shows_after("Last", "$GPGGA,123519,4807.038,N"));
}

TEST(Live_view, unknown_frames_do_not_hide_the_keys_forever) {
    Viewed_link link;
    bool noted = false;
    EXPECT_TRUE(link.session.until([&] {
        link.send(build_frame("XY", "x"));
        noted = noted || notes(link.session, "UNKNOWN XY");
        return noted && link.session.row(23).rfind(" q quit", 0) == 0;
    }));
    EXPECT_TRUE(noted);
}

TEST(Live_view, goes_through_the_states_of_a_link) {
    Viewed_link link;
    EXPECT_TRUE(link.session.shows("waiting for the first byte"));
    link.send(frame);
    EXPECT_TRUE(link.session.shows("receiving good frames"));
    EXPECT_TRUE(link.session.shows_after("Link", "silent for "));
    EXPECT_TRUE(link.session.shows(" s after good traffic"));
    EXPECT_GE(number_after(link.session, "Link        silent for"), 3U);
    link.send(frame);
    EXPECT_TRUE(link.session.shows("receiving good frames"));
}

TEST(Live_view, recognises_rubbish) {
    Random random;
    Viewed_link link;
    EXPECT_TRUE(link.session.until([&] {
        link.send(random.bytes(20));
        return link.session.after("Link").rfind("receiving only rubbish: wrong baud rate?", 0) == 0;
    }));
    EXPECT_TRUE(link.session.until([&] { // a damaged length may hide some frames
        link.send("\n" + frame);
        return link.session.after("Link").rfind("receiving good frames", 0) == 0;
    }));
}

TEST(Live_view, marks_values_that_change) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("~~      1"));
    EXPECT_TRUE(link.session.until([&] { // the next update ends the mark, unless the value changes again
        link.send(frame);
        return link.session.look(4, 8).bold;
    }));
    EXPECT_TRUE(link.session.until([&] { return !link.session.look(4, 8).bold; }));
    EXPECT_GT(number_after(link.session, "~~"), 1U);
}

// ---- Size ----

TEST(Live_view, follows_the_windows_size) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("~~      1"));
    EXPECT_TRUE(link.session.shows_in_row(23, " q quit"));
    link.session.resize(large);
    EXPECT_TRUE(link.session.shows_in_row(39, " q quit"));
    EXPECT_TRUE(link.session.shows("Scatter\n"));
    EXPECT_TRUE(link.session.shows_in_row(4, "~~      1"));
    link.session.resize({20, 60});
    EXPECT_TRUE(link.session.shows("Too small: 60 x 20."));
    EXPECT_TRUE(link.session.hides("Link"));
    link.session.resize(ordinary);
    EXPECT_TRUE(link.session.shows_in_row(23, " q quit"));
    EXPECT_TRUE(link.session.shows_in_row(4, "~~      1"));
}

TEST(Live_view, prefers_the_windows_size_to_the_environments) {
    Terminal_session session(
        "/bin/sh", {"-c", "LINES=24 COLUMNS=80 exec \"$0\" \"$1\" --view", RECEIVER_MONITOR, simulator_with("")},
        large);
    EXPECT_TRUE(session.shows_in_row(39, " q quit"));
    session.resize(ordinary);
    EXPECT_TRUE(session.shows_in_row(23, " q quit"));
}

// ---- Keys ----

TEST(Live_view, pauses_and_continues) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("~~      1"));
    link.session.press(" ");
    ASSERT_TRUE(link.session.shows("PAUSED"));
    link.send(frame);
    ASSERT_TRUE(link.has_received_all());
    link.session.press("f"); // is obeyed after the frame was received
    EXPECT_TRUE(link.session.shows("RT,1234"));
    EXPECT_TRUE(link.session.shows_in_row(4, "~~      1"));
    link.session.press(" ");
    EXPECT_TRUE(link.session.shows("~~      2"));
    EXPECT_TRUE(link.session.hides("PAUSED"));
}

TEST(Live_view, clears_the_counts) {
    Viewed_link link;
    link.send(frame + frame + frame);
    ASSERT_TRUE(link.session.shows("~~      3"));
    link.session.press("c");
    EXPECT_TRUE(link.session.shows("Bytes       0 = frames 0"));
    EXPECT_TRUE(link.session.hides("~~"));
    link.send(frame);
    EXPECT_TRUE(link.session.shows("~~      1"));
    link.session.press("q");
    EXPECT_EQ(link.session.status_at_end(), 0);
    EXPECT_THAT(link.session.screen(), HasSubstr("bytes: 44 = frames 44")); // the summary is of everything
}

TEST(Live_view, switches_the_form_of_messages) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("RT ms=1234"));
    link.session.press("f");
    EXPECT_TRUE(link.session.shows("RT,1234"));
    link.session.press("f");
    EXPECT_TRUE(link.session.shows("RT ms=1234"));
}

TEST(Live_view, shows_help) {
    Viewed_link link;
    ASSERT_TRUE(link.session.shows("waiting for the first byte"));
    for (const char* key : {"h", "?"}) {
        link.session.press(key);
        EXPECT_TRUE(link.session.shows("pause: freezes the screen"));
        link.session.press(key);
        EXPECT_TRUE(link.session.shows("waiting for the first byte"));
    }
}

TEST(Live_view, reports_that_there_is_no_log_to_switch) {
    Viewed_link link;
    link.session.press("l");
    EXPECT_TRUE(link.session.shows("No log: start with --log DIR."));
    EXPECT_TRUE(link.session.shows(" q quit")); // the keys are shown again
}

TEST(Live_view, calls_the_program_to_switch_the_log) {
    const Pty_pair terminal;
    const Standard_output standard(terminal.slave());
    setenv("TERM", "vt100", 1);
    int switched = 0;
    Live_view::Options options;
    options.switch_log = [&] { ++switched; };
    Live_view view(options);
    ASSERT_EQ(view.problem(), "");
    for (int i = 1; i <= 2; ++i) {
        terminal.send("l");
        EXPECT_TRUE(eventually([&] { return view.attend() && switched == i; }));
    }
}

TEST(Live_view, other_keys_do_nothing) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("~~      1"));
    link.session.press("x\r\n\t\x1b[A\x1b[5~\x7f\xC3\xA4");
    link.session.press("\x1b[c\x1b[1;2c\x1bOc\x1bOq\x1b[ q"); // the letters in them are no keys
    link.send(frame);
    EXPECT_TRUE(link.session.shows("~~      2"));
    EXPECT_THAT(link.session.screen(), Not(HasSubstr("PAUSED")));
    link.session.press("\x1b");
    link.session.press("q");
    EXPECT_EQ(link.session.status_at_end(), 0);
}

TEST(Live_view, redraws_the_screen_on_request) {
    Viewed_link link;
    link.send(frame);
    ASSERT_TRUE(link.session.shows("~~      1"));
    const std::size_t before = link.session.output().size();
    link.session.press("\x0C");
    EXPECT_TRUE(link.session.until(
        [&] { return link.session.output().find("receiver_monitor", before) != std::string::npos; }));
}

// ---- Restoring the terminal ----

TEST(Live_view, restores_the_terminal_when_it_quits) {
    EXPECT_EQ(status_with_restored_terminal([](Terminal_session& session) { session.press("q"); }), 0);
    EXPECT_EQ(status_with_restored_terminal([](Terminal_session& session) { session.press("\x03"); }), 0);
}

TEST(Live_view, restores_the_terminal_after_an_interrupt) {
    EXPECT_EQ(status_after_signal(SIGINT), 0);
    EXPECT_EQ(status_after_signal(SIGTERM), 0);
}

TEST(Live_view, restores_the_terminal_when_a_signal_kills_it) {
    for (const int number : {SIGABRT, SIGHUP, SIGQUIT, SIGXCPU, SIGUSR1, SIGUSR2, SIGALRM})
        EXPECT_EQ(status_after_signal(number), -number);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    status_after_signal(SIGSEGV); // the sanitizer's own handler has the last word
#else
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        EXPECT_EQ(status_after_signal(number), -number);
#endif
}

TEST(Live_view, a_stop_from_the_keyboard_releases_the_terminal) {
    Job job("fg; echo over");
    job.stop();
    EXPECT_NE(job.session.settings().c_lflag & ECHO, 0U);
    job.session.press("\n");
    EXPECT_TRUE(job.session.until([&] { return job.session.is_on_alternate_screen(); }));
    EXPECT_TRUE(job.session.shows("~~      1"));
    job.send(frame);
    EXPECT_TRUE(job.session.shows("~~      2"));
    job.session.press("q");
    EXPECT_TRUE(job.session.shows("over"));
}

TEST(Live_view, runs_without_the_terminal_in_the_background) {
    Job job("bg; read -r; fg; echo over");
    job.stop();
    job.session.press("\n");
    job.send(frame);
    ASSERT_TRUE(job.has_received_all());
    EXPECT_FALSE(job.session.until([&] { return job.session.is_on_alternate_screen(); }, several_updates));
    job.session.press("\n");
    EXPECT_TRUE(job.session.shows("~~      2"));
    job.session.press("q");
    EXPECT_TRUE(job.session.shows("over"));
}

TEST(Live_view, ends_by_a_signal_while_it_is_stopped) {
    for (const char* signal : {"TERM", "HUP"}) {
        SCOPED_TRACE(signal);
        Job job("kill -" + std::string(signal) + " %1; while kill -0 %1; do sleep 0.1; done 2>/dev/null; echo over");
        job.stop();
        const termios settings = job.session.settings();
        job.session.press("\n");
        EXPECT_TRUE(job.session.shows("over"));
        EXPECT_FALSE(job.session.is_on_alternate_screen());
        expect_same_settings(settings, job.session.settings());
    }
}

TEST(Live_view, ends_on_a_terminal_that_flow_control_holds) {
    const int status = status_with_restored_terminal([](Terminal_session& session) {
        session.press(" "); // nothing is drawn any more when output stops
        EXPECT_TRUE(session.shows("PAUSED"));
        EXPECT_TRUE(session.settles());
        session.press("\x13"); // XOFF
        session.signal(SIGTERM);
    });
    EXPECT_EQ(status, 0);
}

TEST(Live_view, other_output_is_shown_as_a_note_and_printed_at_the_end) {
    const Writing_child child("child");
    Terminal_session session(RECEIVER_MONITOR, {child.specification(), "--view"}, ordinary);
    EXPECT_TRUE(session.until([&] { return notes(session, "child"); }));
    EXPECT_TRUE(session.shows("receiving good frames"));
    EXPECT_TRUE(session.shows_in_row(0, " receiver_monitor"));
    EXPECT_TRUE(session.shows(" q quit"));
    session.press("q");
    EXPECT_EQ(session.status_at_end(), 0);
    const std::size_t end_of_view = session.output().rfind("q quit");
    EXPECT_NE(session.output().find("child\r\n", end_of_view), std::string::npos) << session.screen();
}

TEST(Live_view, last_output_is_printed_when_a_signal_kills_it) {
    const Writing_child child("last words");
    Terminal_session session(RECEIVER_MONITOR, {child.specification(), "--view"}, ordinary);
    EXPECT_TRUE(session.until([&] { return notes(session, "last words"); }));
    session.signal(SIGABRT);
    EXPECT_EQ(session.status_at_end(), -SIGABRT);
    EXPECT_FALSE(session.is_on_alternate_screen());
    EXPECT_THAT(session.screen(), StartsWith("last words"));
}

// ---- Slow lines ----

TEST(Live_view, leaves_free_capacity_on_a_line_of_9600_baud) {
    constexpr double most_bytes_per_second = 900;
    constexpr std::chrono::seconds duration(12);
    const std::vector<std::string> types = {"vt100", "vt220", "linux", "xterm-256color"};
    std::vector<std::unique_ptr<Terminal_session>> sessions;
    const Stopwatch stopwatch;
    for (const std::string& type : types)
        sessions.push_back(
            std::make_unique<Terminal_session>("/bin/sh",
                                               Arguments{"-c", "stty 9600; exec \"$0\" \"$1\" --view", RECEIVER_MONITOR,
                                                         simulator_with("--seed 1 --rate 10")},
                                               ordinary, type));
    while (stopwatch.elapsed() < duration)
        for (const auto& session : sessions)
            session->watch(std::chrono::milliseconds(1));
    const double seconds = std::chrono::duration<double>(stopwatch.elapsed()).count();
    for (std::size_t i = 0; i < types.size(); ++i) {
        const double rate = static_cast<double>(sessions[i]->output().size()) / seconds;
        std::printf("%s: %.0f bytes/s, the first screen included\n", types[i].c_str(), rate);
        EXPECT_LT(rate, most_bytes_per_second) << types[i];
        EXPECT_GT(rate, 50) << types[i]; // it shows something
        EXPECT_TRUE(sessions[i]->until([&] { return number_after(*sessions[i], "PG") > 50; })) << types[i];
    }
}

TEST(Live_view, sends_a_burst_at_first_and_few_bytes_on_average) {
    constexpr double most_bytes_per_second = 900; // the terminal may be at the other end of a slower line
    constexpr std::chrono::seconds duration(6);
    Terminal_session session(RECEIVER_MONITOR, {simulator_with("--seed 1 --rate 10"), "--view"}, ordinary, "vt100");
    session.watch(duration);
    const std::size_t first = session.output().size();
    const Stopwatch stopwatch;
    session.watch(duration);
    const std::size_t second = session.output().size() - first;
    const double seconds = std::chrono::duration<double>(stopwatch.elapsed()).count();
    EXPECT_LT(static_cast<double>(second), most_bytes_per_second * seconds);
    EXPECT_GT(first, second);
}

// ---- Without a usable terminal ----

TEST(Live_view, without_a_terminal_there_is_none) {
    const Program_result result = Program(RECEIVER_MONITOR, {"--view"}).input(frame).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "receiver_monitor: --view: standard output is no terminal\n");
}

TEST(Live_view, without_a_terminal_that_can_be_addressed_there_is_none) {
    for (const char* type : {"dumb", "no-such-terminal"}) {
        Terminal_session session(RECEIVER_MONITOR, {simulator_with(""), "--view"}, ordinary, type);
        EXPECT_EQ(session.status_at_end(), 1);
        EXPECT_EQ(session.row(0).substr(0, 78),
                  "receiver_monitor: --view: cannot address the cursor of this terminal: is TERM ");
    }
}

TEST(Live_view, does_not_share_the_keyboard_with_the_link) {
    for (const char* specification : {"-", "cons:"}) {
        Terminal_session session(RECEIVER_MONITOR, {specification, "--view"}, ordinary);
        EXPECT_EQ(session.status_at_end(), 1);
        EXPECT_EQ(session.row(0), "receiver_monitor: --view needs the keyboard for its keys: give a SPEC or a devic");
    }
}

TEST(Live_view, reads_standard_input_beside_the_keyboard) {
    const Temporary_folder folder;
    const std::string frames = folder.make_file("frames", frame + frame);
    Terminal_session session("/bin/sh", {"-c", "exec \"$0\" --view <\"$1\"", RECEIVER_MONITOR, frames}, ordinary);
    EXPECT_TRUE(session.shows("ended: no more bytes will follow"));
    EXPECT_TRUE(session.shows("~~      2"));
    session.press("q");
    EXPECT_EQ(session.status_at_end(), 0);
}

TEST(Live_view, reports_an_input_that_cannot_be_opened) {
    Terminal_session session(RECEIVER_MONITOR, {"--device", "/does/not/exist", "--view"}, ordinary);
    EXPECT_EQ(session.status_at_end(), 1);
    EXPECT_THAT(session.screen(), HasSubstr("Error opening '/does/not/exist': No such file or directory"));
    EXPECT_FALSE(session.is_on_alternate_screen());
}

TEST(Live_view, ends_after_the_duration_and_the_count) {
    for (const char* option : {"--duration=0.5", "--count=100"}) {
        Terminal_session session(RECEIVER_MONITOR, {simulator_with("--rate 50"), "--view", option}, ordinary);
        EXPECT_EQ(session.status_at_end(), 0) << option;
        EXPECT_THAT(session.screen(), HasSubstr("checksum failures: 0"));
    }
}
