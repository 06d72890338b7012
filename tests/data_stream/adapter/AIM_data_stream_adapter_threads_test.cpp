#include <glue/data_stream/AIM_data_stream_adapter.h>

#include <support/builders/AIM_adapter.h>
#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Recording_waiter.h>
#include <support/fakes/Scripted_event_sender.h>
#include <support/processes/processes.h>

#include <platform/Debug.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned longest_read = AIM_data_stream_adapter::longest_read;

/// A line of noise: no byte can begin a frame.
std::string noise_line(Random& random) {
    std::string bytes;
    for (unsigned count = random.between(0, 40); count != 0; --count)
        bytes += static_cast<char>(random.between('!', '/'));
    return bytes + "\n";
}

/// A raw stream with a thread of its own, which receives `bytes` repeatedly, in pieces of up to `longest_piece` that
/// fit, until the stream is destroyed.
class Sending_stream : public Scripted_event_sender {
  public:
    Sending_stream(std::string bytes, unsigned longest_piece)
        : repeated(std::move(bytes)), longest(longest_piece), sender([this] { send(); }) {}
    ~Sending_stream() override {
        stopping = true;
        sender.join();
    }

  private:
    void send() {
        std::string_view rest = repeated;
        for (unsigned step = 1; !stopping; ++step) {
            rest.remove_prefix(push(rest.substr(0, 1 + step * 7 % longest)));
            if (rest.empty())
                rest = repeated;
            std::this_thread::yield();
        }
    }

    std::string repeated;
    unsigned longest;
    std::atomic<bool> stopping{false};
    std::thread sender;
};

/// Reads as an application does, after events, until `count` bytes have been received.
std::string read_by_events(AIM_data_stream_adapter& adapter, Recording_waiter& rx, std::size_t count, Random& random) {
    std::string bytes;
    while (bytes.size() < count) {
        if (adapter.bytes_avail() == 0) {
            rx.clear();
            if (adapter.bytes_avail() == 0 && !rx.wait_for(1)) {
                ADD_FAILURE() << "no event, " << bytes.size() << " of " << count << " bytes received";
                return bytes;
            }
        }
        std::string piece(std::min(adapter.bytes_avail(), random.between(1, 5000)), '\0');
        const auto size = static_cast<unsigned>(piece.size());
        EXPECT_TRUE(adapter.get_data(reinterpret_cast<unsigned char*>(piece.data()), size, 0));
        adapter.drop(size);
        bytes += piece;
    }
    return bytes;
}

/// Two connected adapters: bytes written to one can be read from the other.
struct Linked_adapters {
    Linked_adapters() {
        near_raw.on_write = [this](const unsigned char* data, unsigned len) {
            std::string_view rest(reinterpret_cast<const char*>(data), len);
            eventually([&] {
                rest.remove_prefix(far_raw.push(rest));
                return rest.empty();
            });
            return static_cast<int>(len - rest.size());
        };
        far.reg_rx_waiter(rx, false);
    }

    module_man modules;
    Recording_waiter rx;
    std::unique_ptr<Scripted_event_sender> near_owned = std::make_unique<Scripted_event_sender>();
    std::unique_ptr<Scripted_event_sender> far_owned = std::make_unique<Scripted_event_sender>();
    Scripted_event_sender& near_raw = *near_owned;
    Scripted_event_sender& far_raw = *far_owned;
    AIM_data_stream_adapter far{modules, std::move(far_owned), '2'};
    AIM_data_stream_adapter near{modules, std::move(near_owned), '1'};
};

TEST(AIM_adapter_threads, payload_of_every_size_arrives) {
    Random random;
    Linked_adapters link;
    for (unsigned size = 1; size <= longest_read; ++size) {
        const std::string payload = random.bytes(size);
        ASSERT_EQ(write_bytes(link.near, payload), static_cast<int>(size));
        ASSERT_EQ(read_by_events(link.far, link.rx, size, random), payload) << size;
    }
}

TEST(AIM_adapter_threads, bytes_arrive_with_any_pieces_noise_and_channels) {
    Random random;
    module_man modules;
    std::string wire, expected;
    for (int i = 0; i < 400; ++i) {
        if (random.one_in(4))
            wire += noise_line(random);
        const unsigned size = random.one_in(10) ? random.between(0, longest_read) : random.between(0, 100);
        const std::string payload = random.bytes(size);
        wire += aim_frame(payload, static_cast<char>(random.byte()));
        expected += payload;
    }
    Recording_waiter rx;
    auto owned = std::make_unique<Scripted_event_sender>();
    Scripted_event_sender& raw = *owned;
    AIM_data_stream_adapter reader(modules, std::move(owned), '1');
    reader.reg_rx_waiter(rx, false);
    std::thread sender([&] { // starts after the adapter, which drops earlier bytes
        Random sizes;
        for (std::string rest = wire; !rest.empty(); std::this_thread::yield())
            rest.erase(0, raw.push(rest.substr(0, sizes.between(1, 700))));
    });
    EXPECT_EQ(read_by_events(reader, rx, expected.size(), random), expected);
    sender.join();
    reader.dereg_rx_waiter();
}

TEST(AIM_adapter_threads, many_write_while_others_read_and_drop) {
    Linked_adapters link;
    std::atomic<bool> over{false};
    std::thread dropper([&] {
        while (!over) {
            link.far.drop_all();
            std::this_thread::yield();
        }
    });
    std::thread peeker([&] {
        while (!over) {
            link.far[3];
            link.far.init(link.modules);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 2000; ++i) {
        write_bytes(link.near, "abc");
        link.rx.clear();
    }
    over = true;
    dropper.join();
    peeker.join();
    link.far.drop_all();
    EXPECT_EQ(link.far.bytes_avail(), 0U);
    EXPECT_EQ(link.far_raw.bytes_avail(), 0U);
}

TEST(AIM_adapter_threads, can_be_destroyed_while_its_raw_stream_sends_events) {
    std::string wire;
    for (int i = 0; i < 200; ++i)
        wire += aim_frame(std::to_string(i));
    const Captured_debug complaints; // about frames whose beginning was dropped
    for (int i = 0; i < 300; ++i) {
        module_man modules;
        Recording_waiter rx;
        AIM_data_stream_adapter adapter(modules, std::make_unique<Sending_stream>(wire, 30), '1');
        adapter.reg_rx_waiter(rx, false);
        if (i % 2 == 0) {
            EXPECT_TRUE(eventually([&] { return adapter.bytes_avail() != 0; }));
        }
    }
}

/// A waiter whose next notification lasts as long as an operation of the test: its queue is full, so that the
/// notification drops the oldest event and reports that through the debug printer, which runs the operation.
class Slow_waiter {
  public:
    explicit Slow_waiter(std::function<void()> operation) {
        Debug::Print::set_sink([this, during = std::move(operation)](std::string_view) {
            during();
            notified_ = true;
        });
        for (unsigned i = 0; i < waiter_descriptor::capacity; ++i) {
            waiter_event other;
            other.code = -1; // equals no event of a stream
            waiter_.send_event(other, false, false);
        }
    }
    ~Slow_waiter() { Debug::Print::set_sink({}); }
    Slow_waiter(const Slow_waiter&) = delete;
    Slow_waiter& operator=(const Slow_waiter&) = delete;

    waiter_descriptor* waiter() { return &waiter_; }
    bool notified() const { return notified_; }

  private:
    waiter_descriptor waiter_;
    std::atomic<bool> notified_{false};
};

/// Runs an operation in a thread of its own.
class Operation_thread {
  public:
    void start(std::function<void()> operation) {
        thread_ = std::thread([this, operation = std::move(operation)] {
            id_ = gettid();
            operation();
            returned_ = true;
        });
    }
    void join() { thread_.join(); }
    /// \return whether the operation waits; false when it returns
    bool waits() {
        eventually([this] { return returned_ || (id_ != 0 && sleeps(id_)); });
        return !returned_;
    }

  private:
    std::atomic<pid_t> id_{0};
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

TEST(AIM_adapter_threads, deregistering_waits_for_the_notification_in_progress) {
    module_man modules;
    auto owned = std::make_unique<Scripted_event_sender>();
    Scripted_event_sender& raw = *owned;
    AIM_data_stream_adapter adapter(modules, std::move(owned), '1');
    Operation_thread deregistration;
    std::atomic<bool> waits{false};
    Slow_waiter rx([&] {
        deregistration.start([&] { adapter.dereg_rx_waiter(); });
        waits = deregistration.waits();
    });
    adapter.reg_rx_waiter(rx.waiter(), false);
    raw.push(aim_frame("abc"));
    EXPECT_TRUE(eventually([&] { return rx.notified(); }));
    deregistration.join();
    EXPECT_TRUE(waits);
    EXPECT_EQ(adapter.get_rx_waiter(), nullptr);
}

TEST(AIM_adapter_threads, deregistering_of_the_tx_waiter_waits_for_the_notification_in_progress) {
    module_man modules;
    AIM_data_stream_adapter adapter(modules, std::make_unique<Scripted_event_sender>(), '1');
    Operation_thread deregistration;
    bool waits = false;
    Slow_waiter tx([&] {
        deregistration.start([&] { adapter.dereg_tx_waiter(); });
        waits = deregistration.waits();
    });
    adapter.reg_tx_waiter(tx.waiter(), false);
    adapter.send_tx_event(false);
    deregistration.join();
    EXPECT_TRUE(waits);
    EXPECT_EQ(adapter.get_tx_waiter(), nullptr);
}

TEST(AIM_adapter_threads, registering_another_waiter_waits_for_the_notification_in_progress) {
    module_man modules;
    AIM_data_stream_adapter adapter(modules, std::make_unique<Scripted_event_sender>(), '1');
    Recording_waiter next;
    Operation_thread registration;
    bool waits = false;
    Slow_waiter rx([&] {
        registration.start([&] { adapter.reg_rx_waiter(next, false); });
        waits = registration.waits();
    });
    adapter.reg_rx_waiter(rx.waiter(), false);
    adapter.send_rx_event(false);
    registration.join();
    EXPECT_TRUE(waits);
    EXPECT_EQ(adapter.get_rx_waiter(), next.waiter());
}

TEST(AIM_adapter_threads, waiters_can_be_deregistered_within_a_notification) {
    module_man modules;
    AIM_data_stream_adapter adapter(modules, std::make_unique<Scripted_event_sender>(), '1');
    Slow_waiter rx([&] {
        adapter.dereg_rx_waiter();
        adapter.dereg_tx_waiter();
    });
    adapter.reg_rx_waiter(rx.waiter(), false);
    adapter.reg_tx_waiter(rx.waiter(), false);
    adapter.send_rx_event(false);
    EXPECT_TRUE(rx.notified());
    EXPECT_EQ(adapter.get_rx_waiter(), nullptr);
    EXPECT_EQ(adapter.get_tx_waiter(), nullptr);
}

TEST(AIM_adapter_threads, waiter_can_be_destroyed_as_soon_as_it_is_deregistered) {
    std::string wire;
    for (int i = 0; i < 200; ++i)
        wire += aim_frame(std::to_string(i));
    const Captured_debug complaints; // frames that a full ring has cut
    module_man modules;
    AIM_data_stream_adapter adapter(modules, std::make_unique<Sending_stream>(wire, 30), '1');
    std::atomic<bool> over{false};
    std::thread reader([&] {
        for (; !over; std::this_thread::yield())
            adapter.drop(2); // notifies when bytes remain
    });
    for (int i = 0; i < 50; ++i) {
        Recording_waiter rx;
        adapter.reg_rx_waiter(rx, false);
        EXPECT_TRUE(rx.wait_for(1));
        adapter.dereg_rx_waiter();
    }
    over = true;
    reader.join();
}

TEST(AIM_adapter_threads, raw_stream_is_destroyed_after_the_loop_and_before_the_waiter) {
    module_man modules;
    auto owned = std::make_unique<Scripted_event_sender>();
    Scripted_event_sender& raw = *owned;
    bool destroyed = false;
    raw.on_destroy = [&] {
        raw.push(aim_frame("abc")); // no handler runs, so the bytes stay
        EXPECT_EQ(raw.buffered(), aim_frame("abc"));
        destroyed = true;
    };
    { const AIM_data_stream_adapter adapter(modules, std::move(owned), '1'); }
    EXPECT_TRUE(destroyed);
}

TEST(AIM_adapter_threads, takes_no_processor_time_while_nothing_happens_or_bytes_wait) {
    constexpr std::chrono::milliseconds busy(200); // of this thread: a thread that polls gets about as much
    const auto cpu_time = [](clockid_t clock) {
        timespec time{};
        clock_gettime(clock, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    Linked_adapters link;
    for (const bool bytes_wait : {false, true}) {
        if (bytes_wait) {
            link.far_raw.push(aim_frame("abc") + aim_frame("def") + ">>0");
            ASSERT_TRUE(link.rx.wait_for(1));
        }
        const auto before = cpu_time(CLOCK_PROCESS_CPUTIME_ID);
        const auto begin = cpu_time(CLOCK_THREAD_CPUTIME_ID);
        while (cpu_time(CLOCK_THREAD_CPUTIME_ID) - begin < busy) {
        }
        const auto other_threads = cpu_time(CLOCK_PROCESS_CPUTIME_ID) - before - busy;
        EXPECT_LT(other_threads, busy / 4) << bytes_wait;
    }
}

} // namespace
