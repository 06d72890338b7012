// Random traffic both ways, with a writer and a reader thread for each direction, besides the streams' own threads.

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/faults/Allocation_counter.h>
#include <support/files/descriptors.h>
#include <support/streams/Threaded_stream.h>
#include <support/terminals/Pty_pair.h>

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

/// One direction of a transfer. The bytes in transit always fit the rings: none may be lost.
class Traffic {
  public:
    Traffic(Posix_threaded_data_stream& from, Posix_threaded_data_stream& to, Random& random)
        : from_(from),
          to_(to),
          bytes_(random.bytes(1 << 20)),
          writer_random_(random.engine()()),
          reader_random_(random.engine()()),
          writer_([this] { write(); }),
          reader_([this] { read(); }) {}

    bool arrives_unchanged() {
        writer_.join();
        reader_.join();
        return received_ == bytes_;
    }

  private:
    static constexpr std::size_t most_in_transit =
        std::min(Data_stream::rx_capacity, Posix_threaded_data_stream::tx_capacity);

    static std::size_t piece_of(std::size_t most, std::mt19937& random) {
        return std::min<std::size_t>(most, random() % 3000 + 1);
    }

    void write() {
        for (std::size_t sent = 0; sent < bytes_.size();) {
            const auto free_space = [&] { return most_in_transit - (sent - received_count_); };
            if (!eventually([&] { return free_space() > 0; }))
                return;
            const std::string piece = bytes_.substr(sent, piece_of(free_space(), writer_random_));
            const auto count = static_cast<unsigned>(piece.size());
            if (writer_random_() % 2)
                from_.write_packet(bytes_of(piece), count);
            else
                from_.__write(bytes_of(piece), count);
            sent += piece.size();
        }
    }

    void read() {
        while (received_.size() < bytes_.size()) {
            if (!eventually([&] { return to_.bytes_avail() > 0; }))
                return;
            std::string piece(piece_of(to_.bytes_avail(), reader_random_), '\0');
            to_.get_data(reinterpret_cast<unsigned char*>(piece.data()), static_cast<unsigned>(piece.size()), 0);
            to_.drop(static_cast<unsigned>(piece.size()));
            received_ += piece;
            received_count_ = received_.size();
        }
    }

    Posix_threaded_data_stream& from_;
    Posix_threaded_data_stream& to_;
    const std::string bytes_;
    std::string received_;
    std::atomic<std::size_t> received_count_{0};
    std::mt19937 writer_random_;
    std::mt19937 reader_random_;
    std::thread writer_;
    std::thread reader_;
};

void exchange(Threaded_stream& a, Threaded_stream& b) {
    Random random;
    for (Threaded_stream* stream : {&a, &b}) {
        stream->set_write_buffering(true);
        stream->start();
    }
    Traffic forward(a, b, random);
    Traffic backward(b, a, random);
    EXPECT_TRUE(forward.arrives_unchanged());
    EXPECT_TRUE(backward.arrives_unchanged());
}

TEST(Posix_threaded_data_stream_transfer, random_bytes_pass_a_socket_unchanged_both_ways) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    for (const int end : ends) { // small buffers, so that the transmit rings are used
        const int smallest = 0;
        setsockopt(end, SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
    }
    Threaded_stream a(ends[0], ends[0]);
    Threaded_stream b(ends[1], ends[1]);
    exchange(a, b);
}

TEST(Posix_threaded_data_stream_transfer, random_bytes_pass_a_terminal_unchanged_both_ways) {
    const Pty_pair terminal;
    const int far = dup(terminal.master());
    make_non_blocking(far);
    Threaded_stream a(far, far);
    Threaded_stream b;
    ASSERT_TRUE(b.open(terminal.path().c_str(), false, false, false));
    exchange(a, b);
}

TEST(Posix_threaded_data_stream_transfer, allocates_nothing) {
    Socket_pair sockets;
    const int near = sockets.take_near();
    make_non_blocking(near);
    Threaded_stream stream(near, near);
    stream.set_write_buffering(true);
    std::optional<Allocation_counter> in_thread;
    std::atomic<int> arrivals{0};
    std::atomic<unsigned> allocations_in_thread{0};
    stream.set_rx_callback([&] {
        if (in_thread)
            allocations_in_thread = in_thread->count();
        else
            in_thread.emplace();
        if (arrivals == 2)
            in_thread.reset(); // in the thread that made it
        ++arrivals;
    });
    stream.start();
    const std::string bytes(3000, 'x');
    for (int i = 1; i <= 3; ++i) {
        const Allocation_counter here;
        while (stream._write(bytes_of(bytes), 3000) != 0) { // until the transmit ring is in use
        }
        EXPECT_EQ(here.count(), 0U);
        for (int ready = 0; (ready = bytes_ready(sockets.far())) > 0;)
            read_exactly(sockets.far(), static_cast<std::size_t>(ready));
        write_all(sockets.far(), "a");
        ASSERT_TRUE(eventually([&] { return arrivals == i; }));
    }
    EXPECT_EQ(allocations_in_thread, 0U);
}

} // namespace
