// The common behaviour of the two server streams, tested over both; then what is special to each.

#include <glue/data_stream/TCP_server_buffered_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>
#include <glue/data_stream/port_logging.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Held_announcement.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Replaced_delays.h>
#include <support/files/descriptors.h>
#include <support/processes/Program.h>
#include <support/streams/Open_pair.h>
#include <support/streams/TCP_streams.h>
#include <support/streams/With_ring_lock.h>

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

constexpr unsigned capacity = Data_stream::rx_capacity;
constexpr unsigned eight_mib = 8U << 20;

/// The names of the threads of this process.
std::multiset<std::string> thread_names() {
    std::multiset<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        names.insert(name);
    }
    return names;
}

/// Offers bytes as the server's thread does.
template <typename Stream>
unsigned offer(Stream& stream, std::string bytes) {
    return stream.handle_incoming_data(0, reinterpret_cast<unsigned char*>(bytes.data()),
                                       static_cast<unsigned>(bytes.size()));
}

template <typename Stream>
struct TCP_server_streams : testing::Test {
    module_man modules;
    Stream stream{modules, 0};
    Recording_waiter waiter{modules};
};

using Both = testing::Types<TCP_server_data_stream, TCP_server_buffered_data_stream>;
TYPED_TEST_SUITE(TCP_server_streams, Both);

TYPED_TEST(TCP_server_streams, own_operations_have_their_slots_after_those_of_the_event_sender) {
    EXPECT_EQ(vtable_slot(&TypeParam::lock), 3U);
    EXPECT_EQ(vtable_slot(&TypeParam::unlock), 4U);
    const std::size_t first = vtable_slot(&Event_sender_data_stream::traces_itself) + 1;
    EXPECT_EQ(vtable_slot(&TypeParam::handle_incoming_data), first);
    EXPECT_EQ(vtable_slot(&TypeParam::handle_direct_read), first + 1);
    EXPECT_EQ((vtable_slot<int (TypeParam::*)(int)>(&TypeParam::get_data)), first + 2);
    EXPECT_EQ(vtable_slot(&TypeParam::_write), first + 3);
    EXPECT_EQ(vtable_slot(&TypeParam::set_port_logging), first + 4);
}

TYPED_TEST(TCP_server_streams, lock_is_that_of_the_receive_ring) {
    With_ring_lock<TypeParam> locked(this->modules, 0);
    locked.lock();
    EXPECT_TRUE(locked.ring_is_locked());
    locked.unlock();
    EXPECT_FALSE(locked.ring_is_locked());
}

TYPED_TEST(TCP_server_streams, fetch_satisfies_only_a_request_for_nothing) {
    EXPECT_EQ(this->stream.get_data(0), 1);
    EXPECT_EQ(this->stream.get_data(5), 0);
    EXPECT_EQ(this->stream.get_data(-1), 0);
}

TYPED_TEST(TCP_server_streams, received_bytes_are_announced_and_read) {
    this->stream.reg_rx_waiter(this->waiter, false);
    const TCP_socket client = connect_to(this->stream);
    client.send("hello");
    EXPECT_TRUE(this->waiter.wait_for(1));
    EXPECT_EQ(take(this->stream, 5), "hello");
    EXPECT_EQ(this->waiter.codes()[0], 0);
    EXPECT_EQ(this->waiter.sources()[0], 1); // the stream got the first module id
}

TYPED_TEST(TCP_server_streams, written_bytes_go_to_every_client) {
    const TCP_socket a = connect_to(this->stream);
    const TCP_socket b = connect_to(this->stream);
    EXPECT_EQ(write_bytes(this->stream, "to all"), 6);
    EXPECT_EQ(a.receive(6), "to all");
    EXPECT_EQ(b.receive(6), "to all");
}

TYPED_TEST(TCP_server_streams, write_without_clients_succeeds) {
    EXPECT_EQ(write_bytes(this->stream, "to none"), 7);
}

TYPED_TEST(TCP_server_streams, write_that_the_platform_refuses_returns_0) {
    const TCP_socket client = connect_to(this->stream);
    EXPECT_EQ(write_bytes(this->stream, std::string(256 * 1024 + 1, 'x')), 0);
    EXPECT_EQ(write_bytes(this->stream, "fits"), 4);
    EXPECT_EQ(client.receive(4), "fits");
}

TYPED_TEST(TCP_server_streams, megabytes_pass_unchanged_in_both_directions_at_once) {
    Random random;
    const std::string in = repeated(random.bytes(65537), eight_mib);
    const std::string out = repeated(random.bytes(65521), eight_mib);
    const TCP_socket client = connect_to(this->stream);
    std::thread sends([&] { client.send(in); });
    std::thread receives([&] { EXPECT_TRUE(client.receive(out.size()) == out); });
    std::thread writes([&] {
        for (std::size_t at = 0; at < out.size();) {
            int written = 0;
            const std::string piece = out.substr(at, 10000);
            ASSERT_TRUE(eventually([&] { return (written = write_bytes(this->stream, piece)) > 0; }));
            at += static_cast<std::size_t>(written);
        }
    });
    EXPECT_TRUE(take(this->stream, in.size()) == in);
    for (std::thread* thread : {&sends, &receives, &writes})
        thread->join();
}

TYPED_TEST(TCP_server_streams, slow_reader_loses_nothing) {
    const TCP_socket client = connect_to(this->stream);
    Random random;
    const std::string bytes = random.bytes(3 * capacity);
    std::thread sends([&] { client.send(bytes); });
    EXPECT_TRUE(eventually([this] { return this->stream.bytes_avail() == capacity; }));
    EXPECT_TRUE(process_rests());
    EXPECT_EQ(take(this->stream, bytes.size()), bytes);
    sends.join();
}

TYPED_TEST(TCP_server_streams, reader_of_a_full_ring_is_notified_again) {
    const TCP_socket client = connect_to(this->stream);
    client.send(std::string(capacity + 1, 'x'));
    EXPECT_TRUE(eventually([this] { return this->stream.bytes_avail() == capacity; }));
    this->stream.reg_rx_waiter(this->waiter, false);
    EXPECT_TRUE(this->waiter.wait_for(1));
    this->stream.dereg_rx_waiter();
}

TYPED_TEST(TCP_server_streams, socat_exchanges_bytes) {
    wait_until_open(this->stream);
    const std::string address = "TCP:127.0.0.1:" + std::to_string(this->stream.local_port());
    Program_result result;
    std::thread peer([&] { result = Program("socat", {"-t20", "-", address}).input("question\n").run(); });
    EXPECT_EQ(take(this->stream, 9), "question\n");
    peer.join();
    EXPECT_EQ(result.status, 0) << result.errors;
}

TYPED_TEST(TCP_server_streams, socat_receives_what_is_written) {
    wait_until_open(this->stream);
    const std::string address = "TCP:127.0.0.1:" + std::to_string(this->stream.local_port());
    Program_result result;
    std::thread listens([&] { result = Program("socat", {"-u", address, "-"}).reader_leaves_after(6).run(); });
    EXPECT_TRUE(eventually([this] { return this->stream.connection_count() == 1; }));
    EXPECT_EQ(write_bytes(this->stream, "answer"), 6);
    // socat notices that its reader has closed when it writes more.
    EXPECT_TRUE(
        eventually([this] { return write_bytes(this->stream, "more") == 4 && this->stream.connection_count() == 0; }));
    listens.join();
    EXPECT_EQ(result.output, "answer");
}

TYPED_TEST(TCP_server_streams, port_in_use_leaves_a_closed_stream_without_a_message) {
    TCP_port used_port;
    used_port.listen();
    const Captured_descriptor errors(2);
    {
        TypeParam closed(this->modules, used_port.number());
        const TCP_socket elsewhere = TCP_socket::connected_to(used_port.number());
        EXPECT_EQ(write_bytes(closed, "nowhere"), 7);
        EXPECT_EQ(closed.bytes_avail(), 0U);
        EXPECT_EQ(closed.local_port(), -1);
    }
    TypeParam too_large(this->modules, 65536);
    EXPECT_EQ(errors.text(), "");
}

TYPED_TEST(TCP_server_streams, offer_appends_what_fits_and_marks_the_ring_full) {
    const std::string bytes = numbered(capacity);
    EXPECT_EQ(offer(this->stream, bytes.substr(0, capacity - 4)), capacity - 4);
    const Replaced_delays delays;
    EXPECT_EQ(offer(this->stream, bytes.substr(capacity - 4) + "beyond"), 4U);
    EXPECT_EQ(this->stream.string_avail(), Data_stream::full_ring);
    EXPECT_EQ(delays.units(), std::vector<int>{1});
    EXPECT_EQ(take_buffered(this->stream), bytes);
}

TYPED_TEST(TCP_server_streams, offer_to_a_full_ring_is_refused_announced_and_delayed_without_the_lock) {
    const std::string bytes = numbered(capacity);
    offer(this->stream, bytes);
    this->stream.reg_rx_waiter(this->waiter, false);
    bool free_while_sleeping = false;
    const Replaced_delays delays([&](std::size_t) { free_while_sleeping = this->stream.bytes_avail() == capacity; });
    EXPECT_EQ(offer(this->stream, "0123456789"), 0U);
    EXPECT_EQ(delays.units(), std::vector<int>{1});
    EXPECT_TRUE(free_while_sleeping);
    EXPECT_EQ(this->waiter.codes(), std::vector<int>{0});
    EXPECT_EQ(take_buffered(this->stream), bytes);
}

TYPED_TEST(TCP_server_streams, offer_that_fits_continues_at_the_start_of_the_storage_and_does_not_sleep) {
    const Replaced_delays delays;
    offer(this->stream, std::string(capacity - 3, 'x'));
    this->stream.drop(capacity - 3);
    EXPECT_EQ(offer(this->stream, "abcdef"), 6U);
    EXPECT_EQ(take_buffered(this->stream), "abcdef");
    EXPECT_EQ(delays.units(), std::vector<int>{});
}

TYPED_TEST(TCP_server_streams, offers_are_announced_with_code_0_even_when_they_fill_the_ring_or_are_empty) {
    this->stream.reg_rx_waiter(this->waiter, false);
    const Replaced_delays delays;
    EXPECT_EQ(offer(this->stream, ""), 0U);
    EXPECT_EQ(offer(this->stream, std::string(capacity, 'x')), capacity);
    EXPECT_EQ(offer(this->stream, ""), 0U);
    EXPECT_EQ(this->waiter.codes(), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(delays.units(), std::vector<int>{});
}

TYPED_TEST(TCP_server_streams, direct_reads_are_announced_with_code_1_when_the_ring_is_full) {
    this->stream.reg_rx_waiter(this->waiter, false);
    const auto announce = [this] {
        const std::lock_guard held(this->stream);
        this->stream.handle_direct_read();
    };
    announce();
    offer(this->stream, std::string(capacity, 'x'));
    announce();
    EXPECT_EQ(this->waiter.codes(), (std::vector<int>{0, 0, 1}));
}

TYPED_TEST(TCP_server_streams, rx_callback_runs_under_the_lock_and_may_write) {
    this->stream.set_rx_callback([this] { write_bytes(this->stream, "got it"); });
    const TCP_socket client = connect_to(this->stream);
    client.send("!");
    EXPECT_EQ(client.receive(6), "got it");
    EXPECT_EQ(take(this->stream, 1), "!");
}

TYPED_TEST(TCP_server_streams, destruction_with_a_full_ring_and_clients_is_prompt) {
    auto short_lived = std::make_unique<TypeParam>(this->modules, 0);
    const TCP_socket client = connect_to(*short_lived, 4096);
    client.send(std::string(2 * capacity, 'x'));
    while (write_bytes(*short_lived, std::string(65536, 'y')) != 0) {
    }
    EXPECT_TRUE(eventually([&] { return short_lived->bytes_avail() == capacity; }));
    const Stopwatch stopwatch;
    short_lived.reset();
    EXPECT_LT(stopwatch.elapsed(), 5s);
}

// ---- Specifications ----

template <typename Stream>
struct Word;
template <>
struct Word<TCP_server_data_stream> {
    static constexpr auto mine = "tcp:", other = "tcpb:";
};
template <>
struct Word<TCP_server_buffered_data_stream> {
    static constexpr auto mine = "tcpb:", other = "tcp:";
};

template <typename Stream>
int port_opened_by(const std::string& spec) {
    module_man modules;
    const std::unique_ptr<Stream> stream(Stream::create(modules, spec.c_str()));
    if (!stream)
        return -2;
    wait_until_open(*stream);
    return stream->local_port();
}

TYPED_TEST(TCP_server_streams, specification_may_have_any_text_around_the_word_and_the_port) {
    const TCP_port port;
    const std::string text = Word<TypeParam>::mine + std::to_string(port.number());
    EXPECT_EQ(port_opened_by<TypeParam>(text), port.number());
    EXPECT_EQ(port_opened_by<TypeParam>("some " + text + ", and more"), port.number());
}

TYPED_TEST(TCP_server_streams, specification_without_digits_means_port_0) {
    EXPECT_GT(port_opened_by<TypeParam>(Word<TypeParam>::mine), 0);
    EXPECT_GT(port_opened_by<TypeParam>(std::string(Word<TypeParam>::mine) + "-4001"), 0);
}

TYPED_TEST(TCP_server_streams, specification_of_another_kind_makes_nothing) {
    for (const std::string spec : {"udp:4001", "", "tcp", "cons:", "tcpc:port=4001", "TCP:1"})
        EXPECT_EQ(TypeParam::create(this->modules, spec.c_str()), nullptr) << spec;
    EXPECT_EQ(TypeParam::create(this->modules, Word<TypeParam>::other), nullptr);
}

TYPED_TEST(TCP_server_streams, specification_with_a_number_above_an_int_throws) {
    const std::string spec = std::string(Word<TypeParam>::mine) + "99999999999";
    EXPECT_THROW(TypeParam::create(this->modules, spec.c_str()), std::out_of_range);
}

TYPED_TEST(TCP_server_streams, specification_with_a_million_digits_does_not_use_stack_for_each) {
    const TCP_port port;
    const std::string digits = std::to_string(port.number());
    for (const std::size_t count : {100'000U, 1'000'000U}) {
        const std::string too_large = Word<TypeParam>::mine + std::string(count, '9');
        EXPECT_THROW(TypeParam::create(this->modules, too_large.c_str()), std::out_of_range);
        const std::string padded = std::string(count, 'x') + Word<TypeParam>::mine + std::string(count, '0') + digits;
        EXPECT_EQ(port_opened_by<TypeParam>(padded), port.number());
    }
}

TYPED_TEST(TCP_server_streams, specification_with_the_word_twice_counts_the_first) {
    const TCP_port port;
    const std::string word = Word<TypeParam>::mine;
    const std::string digits = std::to_string(port.number());
    EXPECT_EQ(port_opened_by<TypeParam>(word + digits + "," + word + "99999999999"), port.number());
    EXPECT_EQ(port_opened_by<TypeParam>("tcp" + word + digits), port.number());
}

// ---- The plain stream ----

struct TCP_server_data_stream_test : testing::Test {
    ~TCP_server_data_stream_test() override { Debug::Print::enable(port_logging_category, false); }

    module_man modules;
    TCP_server_data_stream stream{modules, 0};
};

TEST_F(TCP_server_data_stream_test, thread_is_named) {
    EXPECT_TRUE(eventually([] { return thread_names().count("vro.TCP") == 1; }));
}

TEST_F(TCP_server_data_stream_test, flush_leaves_unread_bytes) {
    offer(stream, "unread");
    stream.flush();
    EXPECT_EQ(take_buffered(stream), "unread");
}

TEST_F(TCP_server_data_stream_test, logs_only_the_selected_directions_and_counts_only_logged_bytes) {
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    const auto pass_bytes = [this] {
        offer(stream, "in\r");
        write_bytes(stream, "out");
    };
    pass_bytes();
    EXPECT_EQ(stream.set_port_logging(Data_stream::log_reads), 0);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_writes);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_all);
    pass_bytes();
    stream.set_port_logging(Data_stream::log_none);
    pass_bytes();
    EXPECT_EQ(debug.text_without_times(), "<time> port[RD](3/3): in\\r\n"
                                          "<time> port[WR](3/3): out\n"
                                          "<time> port[RD](3/6): in\\r\n"
                                          "<time> port[WR](3/6): out\n");
}

TEST_F(TCP_server_data_stream_test, logs_offered_bytes_even_when_they_are_refused) {
    offer(stream, std::string(capacity, 'x'));
    const Replaced_delays delays;
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    stream.set_port_logging(Data_stream::log_reads);
    offer(stream, "refused");
    offer(stream, "");
    EXPECT_EQ(debug.text_without_times(), "<time> port[RD](7/7): refused\n");
}

TEST_F(TCP_server_data_stream_test, logs_written_bytes_even_when_they_are_refused) {
    const TCP_socket client = connect_to(stream);
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    stream.set_port_logging(Data_stream::log_writes);
    EXPECT_EQ(write_bytes(stream, std::string(256 * 1024 + 1, 'x')), 0);
    EXPECT_THAT(debug.text_without_times(), HasSubstr("<time> port[WR](262145/262145): xxx"));
    EXPECT_EQ(bytes_ready(client.fd()), 0);
}

TEST_F(TCP_server_data_stream_test, logs_every_received_byte_once_even_with_a_slow_reader) {
    const Captured_debug debug;
    const TCP_socket client = connect_to(stream);
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    stream.set_port_logging(Data_stream::log_reads);
    const std::string bytes(3 * capacity, 'x');
    client.send(bytes);
    EXPECT_TRUE(eventually([this] { return stream.bytes_avail() == capacity; }));
    EXPECT_EQ(take(stream, bytes.size()), bytes);
    Debug::Print::enable(port_logging_category, false);
    EXPECT_THAT(debug.text(), HasSubstr("/" + std::to_string(bytes.size()) + "): "));
}

TEST_F(TCP_server_data_stream_test, every_client_is_served_while_free_space_is_scarce) {
    std::vector<TCP_socket> clients;
    for (const char letter : {'a', 'b', 'c'}) {
        clients.push_back(connect_to(stream));
        clients.back().send(std::string(2 * capacity, letter));
    }
    std::set<char> seen;
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(eventually([this] { return stream.bytes_avail() == capacity; }));
        seen.insert(buffered(stream).back());
        stream.drop(1);
    }
    EXPECT_EQ(seen, (std::set<char>{'a', 'b', 'c'}));
}

TEST_F(TCP_server_data_stream_test, logs_clients_under_its_description) {
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    stream.set_port_logging(Data_stream::log_writes);
    const TCP_socket client = connect_to(stream);
    EXPECT_THAT(debug.text_without_times(), HasSubstr("<time> port: client 0 connected from 127.0.0.1:"));
}

/// Blocks the server's thread until it is released.
class Blocked_server {
  public:
    explicit Blocked_server(TCP_server_data_stream& stream) : announcement_(stream), client_(connect_to(stream)) {
        client_.send("!");
        announcement_.wait_until_inside();
    }
    void release() { announcement_.release(); }

  private:
    Held_announcement announcement_;
    TCP_socket client_;
};

TEST_F(TCP_server_data_stream_test, destruction_reports_after_100_polls_that_the_server_has_not_ended) {
    auto stuck = std::make_unique<TCP_server_data_stream>(modules, 0);
    Blocked_server blocked(*stuck);
    const Captured_descriptor errors(2);
    const Replaced_delays delays([&](std::size_t count) {
        if (count == 100)
            blocked.release();
    });
    stuck.reset();
    EXPECT_EQ(errors.text(), "Couldnt close TCP_server_data_stream cleanly\n");
    EXPECT_EQ(delays.units(), std::vector<int>(100, 1));
}

TEST_F(TCP_server_data_stream_test, destruction_is_silent_when_the_server_ends_in_time) {
    auto busy = std::make_unique<TCP_server_data_stream>(modules, 0);
    Blocked_server blocked(*busy);
    const Captured_descriptor errors(2);
    TCP_server* const server = busy.get();
    const Replaced_delays delays([&](std::size_t count) {
        if (count != 50)
            return;
        blocked.release();
        EXPECT_TRUE(eventually([server] { return server->is_finished(); }));
    });
    busy.reset();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(delays.units(), std::vector<int>(50, 1));
}

// ---- The buffered stream ----

struct TCP_server_buffered_data_stream_test : testing::Test {
    ~TCP_server_buffered_data_stream_test() override { Debug::Print::enable(port_logging_category, false); }

    module_man modules;
    TCP_server_buffered_data_stream stream{modules, 0};
};

TEST_F(TCP_server_buffered_data_stream_test, threads_are_numbered_in_the_process) {
    const int first = std::stoi(stream.get_task_name().substr(4));
    const TCP_server_buffered_data_stream second(modules, 0);
    EXPECT_EQ(stream.get_task_name(), "TCSB" + std::to_string(first));
    EXPECT_EQ(second.get_task_name(), "TCSB" + std::to_string(first + 1));
    EXPECT_TRUE(eventually([&] {
        const auto names = thread_names();
        return names.count("vro." + stream.get_task_name()) == 1 && names.count("vro." + second.get_task_name()) == 1;
    }));
}

[[noreturn]] void exit_with_0_if_numbers_begin_at_0() {
    module_man modules;
    const TCP_server_buffered_data_stream first(modules, 0);
    const TCP_server_buffered_data_stream second(modules, 0);
    _exit(first.get_task_name() == "TCSB0" && second.get_task_name() == "TCSB1" ? 0 : 1);
}

TEST(TCP_server_buffered_data_stream_DeathTest, numbers_begin_at_0_in_a_new_process) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a new process, with its own count
    EXPECT_EXIT(exit_with_0_if_numbers_begin_at_0(), testing::ExitedWithCode(0), "");
}

TEST_F(TCP_server_buffered_data_stream_test, flush_discards_unread_bytes_and_sends_nothing) {
    EXPECT_EQ(vtable_slot(&TCP_server_buffered_data_stream::flush),
              vtable_slot(&TCP_server_buffered_data_stream::set_port_logging) + 1);
    const TCP_socket client = connect_to(stream);
    offer(stream, std::string(capacity, 'x'));
    stream.flush();
    EXPECT_EQ(stream.bytes_avail(), 0U);
    offer(stream, "new");
    stream.flush();
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_EQ(bytes_ready(client.fd()), 0);
    offer(stream, "next");
    EXPECT_EQ(take_buffered(stream), "next");
}

TEST_F(TCP_server_buffered_data_stream_test, ring_that_is_filled_is_announced_with_code_1) {
    Recording_waiter waiter(modules);
    stream.reg_rx_waiter(waiter, true); // quiet: only code 1
    const TCP_socket client = connect_to(stream);
    client.send(std::string(capacity, 'x'));
    EXPECT_TRUE(waiter.wait_for(1));
    EXPECT_EQ(waiter.codes(), std::vector<int>{1});
    stream.dereg_rx_waiter();
}

TEST_F(TCP_server_buffered_data_stream_test, leaves_logging_to_the_platform) {
    const Captured_debug debug;
    Debug::Print::enable(port_logging_category, true);
    stream.set_description("port");
    EXPECT_EQ(stream.set_port_logging(Data_stream::log_reads), 0); // any flag: both directions
    offer(stream, "not logged by the stream");
    write_bytes(stream, "out");
    EXPECT_EQ(debug.text_without_times(), "<time> port[WR](3): out\n");
    stream.set_port_logging(Data_stream::log_none);
    write_bytes(stream, "out");
    EXPECT_EQ(debug.text_without_times(), "<time> port[WR](3): out\n");
}

} // namespace
