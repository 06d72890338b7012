#include <glue/data_stream/Data_stream_factory.h>

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/Posix_console_data_stream.h>
#include <glue/data_stream/Posix_threaded_serial_data_stream.h>
#include <glue/data_stream/Process_data_stream.h>
#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_buffered_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>

#include <platform/TCP_server.h>
#include <platform/module_man.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Signal_disposition.h>
#include <support/terminals/Pty_pair.h>

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

using Stream = std::unique_ptr<Event_sender_data_stream>;

struct Data_stream_factory : testing::Test {
    const Signal_disposition no_pipe_signal{SIGPIPE, SIG_IGN};
    module_man modules;
    char label[64] = "untouched";

    void SetUp() override { setenv("GLUE_TCP_BIND", "127.0.0.1", 1); }
    Stream make(const std::string& spec, Data_stream_create_options options = {}) {
        return Event_sender_data_stream_create_unique(modules, spec.c_str(), label, sizeof label, options);
    }
    /// The message on standard error about a text that makes no stream.
    std::string refusal_of(const std::string& spec) {
        const Captured_descriptor error_output(2);
        const Stream stream = make(spec);
        return stream ? "made a stream" : error_output.text();
    }
};

/// The time-outs of a stream over descriptors, in milliseconds; -1: none.
class Time_outs : public Posix_data_stream {
  public:
    static std::pair<int, int> of(const Stream& stream) {
        const auto& posix = dynamic_cast<const Posix_data_stream&>(*stream);
        return {posix.*(&Time_outs::read_timeout_ms), posix.*(&Time_outs::write_timeout_ms)};
    }
};

template <typename Kind>
bool is(const Stream& stream) {
    return dynamic_cast<Kind*>(stream.get()) != nullptr;
}

// ---- Kinds ----

TEST_F(Data_stream_factory, makes_each_kind_from_its_text) {
    const Pty_pair line;
    EXPECT_TRUE(is<Process_data_stream>(make("exec:cat -u")));
    EXPECT_TRUE(is<TCP_client_data_stream>(make("tcpc:port=1")));
    EXPECT_TRUE(is<TCP_server_data_stream>(make("tcp:0")));
    EXPECT_TRUE(is<TCP_server_buffered_data_stream>(make("tcpb:0")));
    EXPECT_TRUE(is<Posix_threaded_serial_data_stream>(make(line.path() + ":115200")));
    EXPECT_TRUE(is<Posix_threaded_serial_data_stream>(make(line.path())));
}

TEST_F(Data_stream_factory, kinds_differ_in_what_they_can_do) {
    const Pty_pair line;
    const Stream serial = make(line.path());
    EXPECT_TRUE(serial->pause());
    serial->resume();
    EXPECT_FALSE(make("tcp:0")->pause());
    for (const std::string spec : {"tcp:0", "tcpb:0", "tcpc:port=1", line.path().c_str()}) {
        const Stream stream = make(spec);
        EXPECT_TRUE(stream->traces_itself()) << spec;
        EXPECT_FALSE(stream->has_ended()) << spec;
        EXPECT_FALSE(make("aim," + spec)->traces_itself()) << spec;
    }
    const Stream child = make("exec:true");
    EXPECT_FALSE(child->traces_itself());
    EXPECT_TRUE(eventually([&] { return child->has_ended(); }));
    const Stream framed_child = make("aim,exec:true");
    EXPECT_TRUE(eventually([&] { return framed_child->has_ended(); }));
}

TEST_F(Data_stream_factory, makes_the_console) {
    // In a process of its own, because it changes the standard input.
    EXPECT_EXIT(
        {
            const bool made = is<Posix_console_data_stream>(make("cons:anything"));
            _exit(made ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Data_stream_factory, tries_the_kinds_in_their_order) {
    EXPECT_TRUE(is<Process_data_stream>(make("tcpc:port=1 exec:true")));
    EXPECT_TRUE(is<TCP_client_data_stream>(make("tcpc:port=1,addr=tcp:0")));
    EXPECT_TRUE(is<TCP_server_data_stream>(make("tcp:0 tcpb:0")));
    EXPECT_TRUE(is<TCP_server_data_stream>(make("cons: tcp:0")));
    EXPECT_TRUE(is<TCP_server_buffered_data_stream>(make("cons: tcpb:0")));
}

TEST_F(Data_stream_factory, bytes_pass_through_a_made_stream) {
    const Pty_pair line;
    const Stream stream = make(line.path() + ":9600");
    ASSERT_TRUE(stream);
    EXPECT_EQ(write_bytes(*stream, "question"), 8);
    EXPECT_EQ(line.receive(8), "question");
    line.send("answer");
    EXPECT_TRUE(eventually([&] { return buffered(*stream) == "answer"; }));
}

TEST_F(Data_stream_factory, module_id_is_assigned_where_the_kind_needs_one) {
    std::int16_t before = 0;
    modules.init_module(&before, false);
    const Stream stream = make("tcp:0");
    std::int16_t after = 0;
    modules.init_module(&after, false);
    EXPECT_EQ(after, before + 2); // one for the stream
}

// ---- Ownership ----

TEST_F(Data_stream_factory, returns_raw_shared_and_unique_ownership) {
    const Stream raw(Event_sender_data_stream_create_raw(modules, "tcp:0", nullptr, 0, {}));
    EXPECT_TRUE(raw);
    EXPECT_TRUE(Event_sender_data_stream_create(modules, "tcp:0", nullptr, 0, {}));
    EXPECT_TRUE(Event_sender_data_stream_create_unique(modules, "tcp:0", nullptr, 0, {}));
}

// ---- Labels ----

TEST_F(Data_stream_factory, returns_the_label) {
    EXPECT_TRUE(make("front/receiver,tcp:0"));
    EXPECT_STREQ(label, "front/receiver");
    EXPECT_TRUE(make("/,tcp:0"));
    EXPECT_STREQ(label, "/");
    EXPECT_TRUE(make("tcp:0"));
    EXPECT_STREQ(label, "");
}

TEST_F(Data_stream_factory, label_is_as_long_as_possible) {
    EXPECT_TRUE(make("a/b,c/d,tcp:0"));
    EXPECT_STREQ(label, "a/b,c/d");
    EXPECT_TRUE(make("a/b,tcpc:port=1,addr=127.0.0.1"));
    EXPECT_STREQ(label, "a/b");
    EXPECT_THAT(refusal_of("exec:/bin/echo a,b"), HasSubstr("Error: can't parse exec:/bin/echo a,b into"));
}

TEST_F(Data_stream_factory, label_is_cut_to_its_buffer_and_always_terminated) {
    char small[5] = "????";
    EXPECT_TRUE(Event_sender_data_stream_create_unique(modules, "ab/cd,tcp:0", small, 3, {}));
    EXPECT_EQ(std::string(small, 4), std::string("ab\0?", 4));
    char none = '?';
    EXPECT_TRUE(Event_sender_data_stream_create_unique(modules, "ab/cd,tcp:0", &none, 1, {}));
    EXPECT_EQ(none, '\0');
    char untouched = '?';
    EXPECT_TRUE(Event_sender_data_stream_create_unique(modules, "ab/cd,tcp:0", &untouched, 0, {}));
    EXPECT_EQ(untouched, '?');
    EXPECT_TRUE(Event_sender_data_stream_create_unique(modules, "ab/cd,tcp:0", nullptr, 10, {}));
}

TEST_F(Data_stream_factory, label_is_empty_when_there_is_no_stream) {
    refusal_of("front/receiver,/nonexistent");
    EXPECT_STREQ(label, "");
}

// ---- The AIM adapter ----

TEST_F(Data_stream_factory, wraps_a_stream_on_request) {
    const Pty_pair line;
    const Stream stream = make("aim," + line.path());
    EXPECT_TRUE(is<AIM_data_stream_adapter>(stream));
    EXPECT_EQ(write_bytes(*stream, "abc"), 3);
    EXPECT_EQ(line.receive(7), ">>006xa"); // the channel is x
    EXPECT_TRUE(is<AIM_data_stream_adapter>(make("a/b,aim,tcp:0")));
    EXPECT_STREQ(label, "a/b");
}

TEST_F(Data_stream_factory, prefix_counts_only_at_the_beginning) {
    EXPECT_TRUE(is<TCP_server_data_stream>(make("AIM,tcp:0")));
    EXPECT_TRUE(is<TCP_server_data_stream>(make(" aim,tcp:0")));
    EXPECT_TRUE(is<AIM_data_stream_adapter>(make("aim,aim,tcp:0"))); // the server ignores the second one
}

TEST_F(Data_stream_factory, wraps_a_labelled_console) {
    // In a process of its own, because it changes the standard input.
    EXPECT_EXIT(
        {
            const Stream stream = make("a/b,aim,cons:");
            const bool made = is<AIM_data_stream_adapter>(stream) && std::string(label) == "a/b" &&
                              stream->get_description() == std::string("a/b,aim,cons:");
            _exit(made ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// ---- Description and options ----

TEST_F(Data_stream_factory, whole_text_is_the_description) {
    EXPECT_STREQ(make("a/b,tcp:0")->get_description(), "a/b,tcp:0");
    EXPECT_STREQ(make("a/b,aim,tcp:0")->get_description(), "a/b,aim,tcp:0");
    EXPECT_STREQ(make("a%s/0123456789012345678901234567890123456789,tcp:0")->get_description(),
                 "a%s/012345678901234567890123456");
}

TEST_F(Data_stream_factory, time_outs_are_applied_unless_they_are_negative) {
    const Pty_pair line;
    using Pair = std::pair<int, int>;
    EXPECT_EQ(Time_outs::of(make(line.path())), Pair(-1, -1));
    EXPECT_EQ(Time_outs::of(make(line.path(), {-2, -2147483647 - 1})), Pair(-1, -1)); // the stream's own
    EXPECT_EQ(Time_outs::of(make(line.path(), {0, -1})), Pair(0, -1));
    EXPECT_EQ(Time_outs::of(make(line.path(), {-1, 0})), Pair(-1, 0));
    EXPECT_EQ(Time_outs::of(make(line.path(), {200, 2147483647})), Pair(200, 2147483647));
}

// The result of writing to a stream whose line is full. A full line may accept more a moment later, when the system has
// moved its bytes: the result is the first one that accepts none.
int result_when_full(Data_stream& stream) {
    const std::string much(1 << 20, 'x');
    int answer;
    do
        answer = write_bytes(stream, much);
    while (answer > 0);
    return answer;
}

TEST_F(Data_stream_factory, write_time_out_is_applied_when_it_is_not_negative) {
    const Pty_pair line;
    EXPECT_EQ(result_when_full(*make(line.path())), -1); // the system's own result: no time-out
    Data_stream_create_options options;
    options.write_timeout_ms = 0;
    EXPECT_EQ(result_when_full(*make(line.path(), options)), 0);
}

// ---- Texts that make no stream ----

TEST_F(Data_stream_factory, text_that_no_kind_accepts_is_printed_whole) {
    EXPECT_THAT(refusal_of("a/b,/nonexistent/device:9600"),
                EndsWith("Error: can't parse a/b,/nonexistent/device:9600 into a port specification\n"));
    EXPECT_EQ(refusal_of(""), "Error: can't parse  into a port specification\n");
    EXPECT_EQ(refusal_of("a/b,"), "Error: can't parse a/b, into a port specification\n");
    EXPECT_EQ(refusal_of("aim,"), "Error: can't parse aim, into a port specification\n");
    EXPECT_THAT(refusal_of("con:"), EndsWith("Error: can't parse con: into a port specification\n"));
}

TEST_F(Data_stream_factory, text_that_is_too_long_makes_no_stream) {
    const std::string longest = "tcp:0" + std::string(longest_stream_specification - 5, ' ');
    EXPECT_TRUE(make(longest));
    EXPECT_EQ(refusal_of(longest + " "), "Error: can't parse " + longest + "  into a port specification\n");
    EXPECT_THAT(refusal_of(std::string(1 << 20, 'x')), EndsWith("into a port specification\n"));
}

TEST_F(Data_stream_factory, port_that_is_no_int_throws) {
    EXPECT_THROW(make("tcp:99999999999"), std::out_of_range);
    EXPECT_THROW(make("tcpb:99999999999"), std::out_of_range);
}

TEST_F(Data_stream_factory, random_texts_never_crash) {
    Random random;
    const Captured_descriptor error_output(2);
    const std::string pieces[] = {"tcp:",  "tcpb:", "aim,", "/", ",", ":",  "\n", "\r", "a",    "0",
                                  "99999", "rs485", "\"",   "'", " ", "%s", "=",  "\\", "\x80", "\xFF"};
    for (int round = 0; round < 2000; ++round) {
        std::string spec;
        for (unsigned i = random.between(0, 8); i > 0; --i)
            spec += pieces[random.between(0, std::size(pieces) - 1)];
        try {
            make("/nonexistent/" + spec);
            make(spec);
        } catch (const std::out_of_range&) {
        }
    }
}

// ---- The documentation ----

/// The examples of the page on stream specifications, each with its heading.
std::vector<std::pair<std::string, std::string>> documented_examples() {
    std::ifstream page(STREAM_SPECIFICATIONS_PAGE);
    std::vector<std::pair<std::string, std::string>> examples;
    std::string heading;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("## ", 0) == 0)
            heading = line.substr(3);
        else if (line.rfind("```", 0) == 0)
            inside = line == "```stream";
        else if (inside)
            examples.emplace_back(heading, line);
    }
    return examples;
}

std::string kind_of(const Stream& stream) {
    if (is<AIM_data_stream_adapter>(stream))
        return "AIM framing";
    if (is<Process_data_stream>(stream))
        return "Child process";
    if (is<TCP_client_data_stream>(stream))
        return "TCP client";
    if (is<TCP_server_buffered_data_stream>(stream))
        return "Buffered TCP server";
    if (is<TCP_server_data_stream>(stream))
        return "TCP server";
    if (is<Posix_threaded_serial_data_stream>(stream))
        return "Serial line";
    return "none";
}

TEST_F(Data_stream_factory, documented_examples_make_the_kinds_of_their_headings) {
    const auto examples = documented_examples();
    EXPECT_GE(examples.size(), 13U);
    for (auto [heading, example] : examples) {
        if (heading == "Console")
            continue; // tested above, in a process of its own
        const Pty_pair line;
        const std::string device = "/dev/ttyS1";
        const auto at = example.find(device);
        if (at != std::string::npos)
            example.replace(at, device.size(), line.path());
        if (example.find("rs485") != std::string::npos)
            continue; // a pseudo terminal has no line driver; the tests of the serial line simulate one
        const Stream stream = make(example);
        ASSERT_TRUE(stream) << example;
        EXPECT_TRUE(heading.empty() || kind_of(stream) == heading) << example;
    }
}

} // namespace
