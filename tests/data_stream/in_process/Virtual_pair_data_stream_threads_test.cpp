#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/Patience.h>
#include <support/streams/Open_pair.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

namespace {

using Part = Virtual_pair_data_stream_part;

TEST(Virtual_pair_threads, large_write_and_waiting_reader_do_not_stall_each_other) {
    Open_pair pair;
    const std::string bytes = numbered(4000);
    std::atomic<int> written{0};
    std::thread writer([&] { written = write_bytes(pair.a, bytes); });
    EXPECT_EQ(pair.b._get_data(4000), 1);
    writer.join();
    EXPECT_EQ(written, 4000);
    EXPECT_EQ(take_buffered(pair.b), bytes);
}

/// One end in a thread of its own: alternates random writes of `to_send` and random reads until everything is sent and
/// `expected` bytes are received, or nothing has moved for a long time. Never waits long in either, so that two such
/// ends cannot block each other.
class Talking_end {
  public:
    Talking_end(Part& end, std::string to_send, std::size_t expected, unsigned seed)
        : end_(end), to_send_(std::move(to_send)), expected_(expected), engine_(seed), thread_([this] { talk(); }) {}

    /// The received bytes, when both directions are done.
    std::string result() {
        thread_.join();
        return received_;
    }

  private:
    unsigned up_to(unsigned most) { return std::uniform_int_distribution<unsigned>(1, most)(engine_); }

    void talk() {
        Patience patience;
        while ((sent_ < to_send_.size() || received_.size() < expected_) && patience.lasts()) {
            const std::size_t moved_before = sent_ + received_.size();
            send_some();
            read_some();
            if (sent_ + received_.size() > moved_before)
                patience.renew();
        }
    }
    void send_some() {
        end_.set_write_timeout(up_to(50) == 1 ? 10 : 0);
        sent_ += static_cast<std::size_t>(write_bytes(end_, to_send_.substr(sent_, up_to(300))));
    }
    void read_some() {
        end_.set_read_timeout(up_to(50) == 1 ? 10 : 0);
        end_.bytes_avail(up_to(300));
        received_ += take_buffered(end_);
    }

    Part& end_;
    const std::string to_send_;
    const std::size_t expected_;
    std::minstd_rand engine_;
    std::size_t sent_ = 0;
    std::string received_;
    std::thread thread_; // last: it uses the rest
};

TEST(Virtual_pair_threads, random_talk_of_two_threads_keeps_every_byte_in_order) {
    Open_pair pair;
    Random random;
    const std::string to_b = random.bytes(60000);
    const std::string to_a = random.bytes(50000);
    Talking_end end_a(pair.a, to_b, to_a.size(), random.between(1, 1000000));
    Talking_end end_b(pair.b, to_a, to_b.size(), random.between(1, 1000000));
    EXPECT_TRUE(end_a.result() == to_a);
    EXPECT_TRUE(end_b.result() == to_b);
}

/// A direction with a thread at each end: random writes that wait, and random reads that wait.
struct Busy_direction {
    Busy_direction(Part& from, Part& to, const std::string& bytes, unsigned seed)
        : writer([&from, &bytes, seed] {
              std::minstd_rand engine(seed);
              for (std::size_t at = 0; at < bytes.size();) {
                  const std::string piece = bytes.substr(at, 1 + engine() % 400);
                  if (write_bytes(from, piece) != static_cast<int>(piece.size()))
                      return;
                  at += piece.size();
              }
          }),
          reader([this, &to, &bytes, seed] {
              std::minstd_rand engine(seed + 1);
              while (received.size() < bytes.size()) {
                  const auto wanted = std::min<std::size_t>(1 + engine() % 400, bytes.size() - received.size());
                  if (!to.bytes_avail(static_cast<unsigned>(wanted)))
                      return;
                  received += take_buffered(to);
              }
          }) {}
    void join() {
        writer.join();
        reader.join();
    }

    std::string received;
    std::thread writer;
    std::thread reader;
};

TEST(Virtual_pair_threads, waiting_writers_and_readers_both_ways_keep_every_byte_in_order) {
    Open_pair pair;
    Random random;
    const std::string to_b = random.bytes(200000);
    const std::string to_a = random.bytes(200000);
    Busy_direction forth(pair.a, pair.b, to_b, random.between(1, 1000000));
    Busy_direction back(pair.b, pair.a, to_a, random.between(1, 1000000));
    forth.join();
    back.join();
    EXPECT_TRUE(forth.received == to_b);
    EXPECT_TRUE(back.received == to_a);
}

} // namespace
