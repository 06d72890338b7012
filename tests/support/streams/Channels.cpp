#include <support/streams/Channels.h>

#include <glue/data_stream/AIM_data_stream_adapter.h>
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/data_stream/Posix_serial_data_stream.h>
#include <glue/data_stream/Posix_threaded_serial_data_stream.h>
#include <glue/data_stream/Process_data_stream.h>
#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_buffered_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>
#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <platform/module_man.h>

#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/processes/Child_program.h>
#include <support/processes/Running_program.h>
#include <support/streams/TCP_socket.h>
#include <support/streams/Threaded_stream.h>
#include <support/terminals/Pty_pair.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <utility>

namespace {

module_man modules;

constexpr int reconnect_period_ms = 20;

// ---- How the kinds must be used ----

Stream_end::Manners usual() {
    return {};
}

Stream_end::Manners for_one_thread() {
    Stream_end::Manners manners;
    manners.one_thread = true;
    return manners;
}

Stream_end::Manners queueing() {
    Stream_end::Manners manners;
    manners.queues = true;
    manners.piece_by_piece = true;
    manners.longest_piece = Posix_threaded_data_stream::tx_capacity;
    return manners;
}

Stream_end::Manners framing() {
    Stream_end::Manners manners;
    manners.longest_piece = AIM_data_stream_adapter::longest_read;
    return manners;
}

/// Prevents that a raw stream without enough free space accepts a part of a frame.
Stream_end::Manners framing_one_by_one() {
    Stream_end::Manners manners = framing();
    manners.piece_by_piece = true;
    return manners;
}

std::unique_ptr<Stream_end> end_of(std::shared_ptr<Data_stream> stream, Stream_end::Manners manners = usual()) {
    return std::make_unique<Stream_end>(std::move(stream), manners);
}

std::shared_ptr<Running_program> socat(const std::string& one, const std::string& other) {
    return std::make_shared<Running_program>("socat", std::vector<std::string>{one, other});
}

// ---- In the process ----

Channel virtual_pair() {
    const auto pair = std::make_shared<Virtual_pair_data_stream>(&modules);
    Channel channel;
    for (auto* const part : {&pair->part_a(), &pair->part_b()}) {
        part->set_read_timeout(10);
        part->set_write_timeout(20000);
    }
    channel.near_end = end_of({pair, &pair->part_a()});
    channel.far_end = end_of({pair, &pair->part_b()});
    return channel;
}

// ---- Descriptors ----

std::pair<int, int> sockets(int flags) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0, ends) != 0)
        ADD_FAILURE() << "cannot make a pair of sockets";
    return {ends[0], ends[1]};
}

std::unique_ptr<Stream_end> plain_end(int fd) {
    return end_of(std::make_shared<Posix_data_stream>(fd, fd), for_one_thread());
}

std::unique_ptr<Threaded_stream> threaded(int fd) {
    auto stream = std::make_unique<Threaded_stream>(fd, fd);
    stream->start();
    return stream;
}

std::unique_ptr<Stream_end> queueing_end(int fd) {
    auto stream = threaded(fd);
    stream->set_write_buffering(true);
    return end_of(std::move(stream), queueing());
}

template <typename Near_end, typename Far_end>
Channel over_sockets(Near_end near_end, Far_end far_end) {
    const auto [near_fd, far_fd] = sockets(SOCK_NONBLOCK);
    Channel channel;
    channel.near_end = near_end(near_fd);
    channel.far_end = far_end(far_fd);
    return channel;
}

Channel plain_to_threaded() {
    return over_sockets(plain_end, [](int fd) { return end_of(threaded(fd)); });
}

Channel threaded_to_threaded() {
    const auto threaded_end = [](int fd) { return end_of(threaded(fd)); };
    return over_sockets(threaded_end, threaded_end);
}

Channel queueing_to_queueing() {
    return over_sockets(queueing_end, queueing_end);
}

// ---- Serial lines ----

std::unique_ptr<Stream_end> serial_end(const std::string& path) {
    auto stream = std::make_shared<Posix_serial_data_stream>();
    EXPECT_TRUE(stream->open(path.c_str(), false, false, false));
    return end_of(std::move(stream), for_one_thread());
}

std::unique_ptr<Stream_end> threaded_serial_end(const std::string& path) {
    return end_of(std::shared_ptr<Data_stream>(Posix_threaded_serial_data_stream::create(path.c_str())));
}

int far_descriptor(const Pty_pair& line) {
    const int fd = fcntl(line.master(), F_DUPFD_CLOEXEC, 0);
    make_non_blocking(fd);
    return fd;
}

Channel serial_line() {
    const auto line = std::make_shared<Pty_pair>();
    Channel channel;
    channel.parts = {line};
    channel.near_end = serial_end(line->path());
    channel.far_end = plain_end(far_descriptor(*line));
    return channel;
}

Channel threaded_serial_line() {
    const auto line = std::make_shared<Pty_pair>();
    Channel channel;
    channel.parts = {line};
    channel.near_end = threaded_serial_end(line->path());
    channel.far_end = end_of(threaded(far_descriptor(*line)));
    return channel;
}

Channel serial_to_serial_through_socat() {
    const auto folder = std::make_shared<Temporary_folder>();
    const std::string near_path = folder->path("near");
    const std::string far_path = folder->path("far");
    Channel channel;
    channel.parts = {folder, socat("PTY,raw,echo=0,link=" + near_path, "PTY,raw,echo=0,link=" + far_path)};
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(near_path) && std::filesystem::exists(far_path); }));
    channel.near_end = threaded_serial_end(near_path);
    channel.far_end = serial_end(far_path);
    return channel;
}

// ---- TCP ----

template <typename Server>
std::unique_ptr<Server> listening() {
    TCP_server_base::set_bind_address("127.0.0.1");
    auto server = std::make_unique<Server>(modules, 0);
    EXPECT_TRUE(eventually([&] { return server->local_port() > 0; }));
    return server;
}

/// A server drops what is written before a client has connected.
void wait_for_client(const TCP_server_base& server) {
    EXPECT_TRUE(eventually([&] { return server.connection_count() == 1; }));
}

std::unique_ptr<TCP_client_data_stream> client_of(int port) {
    return std::make_unique<TCP_client_data_stream>(modules, "127.0.0.1", port, reconnect_period_ms, -1);
}

template <typename Server>
Channel server_to_client() {
    auto server = listening<Server>();
    auto client = client_of(server->local_port());
    wait_for_client(*server);
    Channel channel;
    channel.near_end = end_of(std::move(server));
    channel.far_end = end_of(std::move(client));
    return channel;
}

Channel client_to_server() {
    Channel channel = server_to_client<TCP_server_data_stream>();
    std::swap(channel.near_end, channel.far_end);
    return channel;
}

/// Lets socat transfer the bytes between a peer at `address` and a server, the far end.
void connect_through_socat_to_server(Channel& channel, const std::string& address) {
    auto server = listening<TCP_server_data_stream>();
    channel.parts.push_back(socat(address, "TCP:127.0.0.1:" + std::to_string(server->local_port())));
    wait_for_client(*server);
    channel.far_end = end_of(std::move(server));
}

template <typename Server>
Channel server_to_socat() {
    auto server = listening<Server>();
    Channel channel;
    connect_through_socat_to_server(channel, "TCP:127.0.0.1:" + std::to_string(server->local_port()));
    wait_for_client(*server);
    channel.near_end = end_of(std::move(server));
    return channel;
}

Channel client_to_socat() {
    const auto port = std::make_shared<TCP_port>();
    Channel channel;
    channel.parts = {port};
    channel.near_end = end_of(client_of(port->number()));
    connect_through_socat_to_server(channel,
                                    "TCP-LISTEN:" + std::to_string(port->number()) + ",bind=127.0.0.1,reuseaddr");
    return channel;
}

// ---- Child processes ----

std::unique_ptr<Stream_end> child(const Child_program& program) {
    return end_of(std::make_shared<Process_data_stream>(&modules, program, nullptr));
}

Channel child_that_echoes() {
    Channel channel;
    channel.near_end = child(echo());
    return channel;
}

/// The child forwards what it receives to a server, and back.
Channel child_socat_to_server() {
    auto server = listening<TCP_server_data_stream>();
    Channel channel;
    channel.near_end =
        child(Child_program({"socat", "STDIO", "TCP:127.0.0.1:" + std::to_string(server->local_port())}));
    wait_for_client(*server);
    channel.far_end = end_of(std::move(server));
    return channel;
}

// ---- AIM frames ----

std::unique_ptr<Stream_end> framed(std::unique_ptr<Event_sender_data_stream> raw, Stream_end::Manners manners) {
    return end_of(std::make_shared<AIM_data_stream_adapter>(modules, std::move(raw), '1'), manners);
}

/// Over blocking descriptors: a write returns when the whole frame is written.
Channel frames_over_sockets() {
    const auto [near_fd, far_fd] = sockets(0);
    Channel channel;
    channel.near_end = framed(threaded(near_fd), framing());
    channel.far_end = framed(threaded(far_fd), framing());
    return channel;
}

Channel frames_over_TCP() {
    auto server = listening<TCP_server_data_stream>();
    auto client = client_of(server->local_port());
    wait_for_client(*server);
    Channel channel;
    channel.near_end = framed(std::move(server), framing_one_by_one());
    channel.far_end = framed(std::move(client), framing_one_by_one());
    return channel;
}

} // namespace

const std::vector<Channel_kind>& channel_kinds() {
    using K = Channel_kind;
    using Buffered_server = TCP_server_buffered_data_stream;
    static const std::vector<Channel_kind> kinds = {
        {"virtual_pair", virtual_pair, K::stable, K::joined},
        {"plain_to_threaded", plain_to_threaded, K::stable, K::joined},
        {"threaded_to_threaded", threaded_to_threaded, K::stable, K::joined},
        {"queueing_to_queueing", queueing_to_queueing, K::stable, K::alone},
        {"serial_line", serial_line, K::stable, K::joined},
        {"threaded_serial_line", threaded_serial_line, K::stable, K::joined},
        {"serial_to_serial_through_socat", serial_to_serial_through_socat, K::stable, K::alone},
        {"server_to_client", server_to_client<TCP_server_data_stream>, K::stable, K::joined},
        {"buffered_server_to_client", server_to_client<Buffered_server>, K::stable, K::joined},
        {"client_to_server", client_to_server, K::stable, K::joined},
        {"server_to_socat", server_to_socat<TCP_server_data_stream>, K::stable, K::alone},
        {"buffered_server_to_socat", server_to_socat<Buffered_server>, K::stable, K::alone},
        {"client_to_socat", client_to_socat, K::stable, K::alone},
        {"child_that_echoes", child_that_echoes, K::loses_when_interrupted, K::alone},
        {"child_socat_to_server", child_socat_to_server, K::loses_when_interrupted, K::joined},
        {"frames_over_sockets", frames_over_sockets, K::loses_when_interrupted,
         K::alone}, // also after a long time without a reader
        {"frames_over_TCP", frames_over_TCP, K::stable, K::joined},
    };
    return kinds;
}

std::vector<Channel_kind> channel_kinds(const std::function<bool(const Channel_kind&)>& wanted) {
    std::vector<Channel_kind> selected;
    std::copy_if(channel_kinds().begin(), channel_kinds().end(), std::back_inserter(selected), wanted);
    return selected;
}
