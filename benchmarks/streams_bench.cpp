// The steps of every byte and every event.
#include "Comparison.h"

#include <glue/data_stream/TCP_client_data_stream.h>
#include <glue/data_stream/TCP_server_data_stream.h>
#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <platform/Cbuf.h>
#include <platform/Mutex.h>
#include <platform/module_man.h>
#include <platform/waiter.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QMutex>
#include <boost/circular_buffer.hpp>
#include <condition_variable>
#include <queue>
#include <thread>

namespace {

constexpr unsigned piece_size = 100;
constexpr std::int64_t pieces_at_once = 2000; // where two threads share the work: 200 kB

// ---- A ring ----

constexpr unsigned ring_size = 4200;

void fill_ring(benchmark::State& state) {
    unsigned char storage[ring_size], piece[piece_size] = {};
    Cbuf_templ<unsigned char> ring(storage, ring_size);
    for ([[maybe_unused]] auto _ : state) {
        ring.append(piece, piece_size);
        ring.peek(piece, piece_size, 0);
        ring.consume(piece_size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * piece_size);
}

void fill_ring_of_boosts(benchmark::State& state) {
    unsigned char piece[piece_size] = {};
    boost::circular_buffer<unsigned char> ring(ring_size);
    for ([[maybe_unused]] auto _ : state) {
        ring.insert(ring.end(), piece, piece + piece_size);
        std::copy_n(ring.begin(), piece_size, piece);
        ring.erase_begin(piece_size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * piece_size);
}

// ---- From thread to thread ----

/// Measures pieces that one thread writes and another reads. `write` and `read` move one piece; they return false when
/// they cannot.
template <typename Write, typename Read>
void measure_transfer(benchmark::State& state, Write write, Read read) {
    for ([[maybe_unused]] auto _ : state) {
        bool written = true, all_read = true;
        std::thread writer([&] {
            for (std::int64_t i = 0; i < pieces_at_once && written; ++i)
                written = write();
        });
        for (std::int64_t i = 0; i < pieces_at_once && all_read; ++i)
            all_read = read();
        writer.join();
        if (!written || !all_read) {
            state.SkipWithError("bytes were lost");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * pieces_at_once * piece_size);
}

bool write_piece(Data_stream& stream) {
    static const unsigned char piece[piece_size] = {};
    for (unsigned taken = 0; taken < piece_size;) {
        const int result = stream.__write(piece + taken, piece_size - taken);
        if (result < 0)
            return false;
        taken += static_cast<unsigned>(result);
        if (result == 0)
            std::this_thread::yield(); // full: the other side has to read first
    }
    return true;
}

bool write_piece(int descriptor) {
    static const unsigned char piece[piece_size] = {};
    return write(descriptor, piece, piece_size) == static_cast<ssize_t>(piece_size);
}

bool read_piece(int descriptor) {
    unsigned char piece[piece_size];
    for (std::size_t taken = 0; taken < piece_size;) {
        const ssize_t result = read(descriptor, piece, piece_size - taken);
        if (result <= 0)
            return false;
        taken += static_cast<std::size_t>(result);
    }
    return true;
}

void talk_in_process(benchmark::State& state) {
    Virtual_pair_data_stream pair(nullptr);
    Data_stream& reader = pair.part_b();
    measure_transfer(
        state, [&] { return write_piece(pair.part_a()); },
        [&] {
            unsigned char piece[piece_size];
            const bool received = reader.get_data(piece, piece_size, 0);
            reader.drop(piece_size);
            return received;
        });
}

void talk_through_a_pipe(benchmark::State& state) {
    int ends[2];
    if (pipe(ends) != 0) {
        state.SkipWithError("no pipe");
        return;
    }
    measure_transfer(
        state, [&] { return write_piece(ends[1]); }, [&] { return read_piece(ends[0]); });
    close(ends[0]);
    close(ends[1]);
}

/// Waits for a condition that a stream's thread makes true. \return false when it did not within ten seconds
template <typename Condition>
bool becomes_true(Condition condition) {
    for (const Atime limit = Atime::now() + 10000; !condition(); std::this_thread::yield()) {
        if (Atime::now() > limit)
            return false;
    }
    return true;
}

void talk_over_TCP(benchmark::State& state) {
    module_man modules;
    TCP_server_data_stream server(modules, 0);
    if (!becomes_true([&] { return server.local_port() > 0; })) {
        state.SkipWithError("no port");
        return;
    }
    TCP_client_data_stream client(modules, "127.0.0.1", server.local_port(), 1000, 1000);
    if (!becomes_true([&] { return server.connection_count() == 1; })) {
        state.SkipWithError("no connection");
        return;
    }
    measure_transfer(
        state, [&] { return write_piece(server); },
        [&] {
            const bool received = becomes_true([&] { return client.bytes_avail() >= piece_size; });
            client.drop(piece_size);
            return received;
        });
}

/// Two sockets of this process that are connected over 127.0.0.1.
struct Connection {
    Connection() : listener(socket(AF_INET, SOCK_STREAM, 0)), writer(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const where = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        const int on = 1;
        if (bind(listener, where, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, where, &size) == 0 &&
            connect(writer, where, size) == 0 && setsockopt(writer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0)
            reader = accept(listener, nullptr, nullptr);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() {
        for (const int each : {listener, writer, reader})
            close(each);
    }

    int listener, writer, reader = -1;
};

void talk_over_sockets(benchmark::State& state) {
    const Connection connection;
    measure_transfer(
        state, [&] { return write_piece(connection.writer); }, [&] { return read_piece(connection.reader); });
}

// ---- Events ----

constexpr int rounds_at_once = 1000;

/// Measures rounds: a thread notifies another, which answers. Each waits for `take` of its own queue.
template <typename Queue>
void measure_rounds(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        Queue there, back;
        std::thread other([&] {
            for (int i = 0; i < rounds_at_once; ++i) {
                there.take();
                back.put();
            }
        });
        for (int i = 0; i < rounds_at_once; ++i) {
            there.put();
            back.take();
        }
        other.join();
    }
    state.SetItemsProcessed(state.iterations() * rounds_at_once);
}

struct Waiter {
    void put() {
        waiter_event event;
        descriptor.send_event(event, false, false);
    }
    void take() {
        waiter_event event;
        descriptor.get_event(event);
    }
    waiter_descriptor descriptor;
};

struct Standard_queue {
    void put() {
        {
            const std::lock_guard held(mutex);
            events.push(waiter_event());
        }
        arrived.notify_one();
    }
    void take() {
        std::unique_lock<std::mutex> held(mutex);
        arrived.wait(held, [this] { return !events.empty(); });
        events.pop();
    }
    std::mutex mutex;
    std::condition_variable arrived;
    std::queue<waiter_event> events;
};

// ---- A lock without contention ----

template <typename Lock>
void take_lock(benchmark::State& state) {
    Lock lock;
    for ([[maybe_unused]] auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
    state.SetItemsProcessed(state.iterations());
}

const Benchmarks streams{
    {"put bytes through a ring", fill_ring, "boost::circular_buffer", fill_ring_of_boosts, headroom * 10 * serial_line,
     "ten serial lines at 921,600 baud, a hundred times over"},
    {"talk within the process", talk_in_process, "a pipe of the system", talk_through_a_pipe, 10 * serial_line,
     "ten serial lines at 921,600 baud"},
    {"talk over TCP", talk_over_TCP, "two sockets, written and read directly", talk_over_sockets, 10 * serial_line,
     "ten serial lines at 921,600 baud"},
    {"event and answer between threads", measure_rounds<Waiter>, "std::queue, mutex, condition variable",
     measure_rounds<Standard_queue>, 1000, "one each millisecond"},
    {"take and give back a free lock", take_lock<Mutex>, "QMutex", take_lock<QMutex>, headroom * 2 * serial_line / 10,
     "two for each ten bytes at 921,600 baud, a hundred times over"},
};

} // namespace
