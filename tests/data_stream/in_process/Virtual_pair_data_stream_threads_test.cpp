#include <glue/data_stream/Virtual_pair_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/streams/Open_pair.h>

#include <platform/Atime.h>

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

/// One end in a thread of its own: random writes of `to_send` and random reads in turn, until everything is sent and
/// as much as `expected` has come. Never waits long in either, so that two such ends cannot block each other.
class Talking_end {
  public:
    Talking_end(Part& end, std::string to_send, std::size_t expected, unsigned seed)
        : end_(end), to_send_(std::move(to_send)), expected_(expected), engine_(seed), thread_([this] { talk(); }) {}

    /// What came, when both directions are done.
    std::string result() {
        thread_.join();
        return got_;
    }

  private:
    unsigned up_to(unsigned most) { return std::uniform_int_distribution<unsigned>(1, most)(engine_); }

    void talk() {
        const Atime limit = Atime::now() + 60000;
        while ((sent_ < to_send_.size() || got_.size() < expected_) && Atime::now() < limit) {
            send_some();
            read_some();
        }
    }
    void send_some() {
        end_.set_write_timeout(up_to(50) == 1 ? 10 : 0);
        sent_ += static_cast<std::size_t>(write_bytes(end_, to_send_.substr(sent_, up_to(300))));
    }
    void read_some() {
        end_.set_read_timeout(up_to(50) == 1 ? 10 : 0);
        end_.bytes_avail(up_to(300));
        got_ += take_buffered(end_);
    }

    Part& end_;
    const std::string to_send_;
    const std::size_t expected_;
    std::minstd_rand engine_;
    std::size_t sent_ = 0;
    std::string got_;
    std::thread thread_; // last: it uses the rest
};

TEST(Virtual_pair_threads, random_talk_of_two_threads_loses_and_reorders_nothing) {
    Open_pair pair;
    Random random;
    const std::string to_b = random.bytes(60000);
    const std::string to_a = random.bytes(50000);
    Talking_end end_a(pair.a, to_b, to_a.size(), random.between(1, 1000000));
    Talking_end end_b(pair.b, to_a, to_b.size(), random.between(1, 1000000));
    EXPECT_TRUE(end_a.result() == to_a);
    EXPECT_TRUE(end_b.result() == to_b);
}

/// A direction with a thread at each end, the writer in random writes that wait, the reader in random reads that wait.
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
              while (got.size() < bytes.size()) {
                  const auto wanted = std::min<std::size_t>(1 + engine() % 400, bytes.size() - got.size());
                  if (!to.bytes_avail(static_cast<unsigned>(wanted)))
                      return;
                  got += take_buffered(to);
              }
          }) {}
    void join() {
        writer.join();
        reader.join();
    }

    std::string got;
    std::thread writer;
    std::thread reader;
};

TEST(Virtual_pair_threads, waiting_writers_and_readers_both_ways_lose_and_reorder_nothing) {
    Open_pair pair;
    Random random;
    const std::string to_b = random.bytes(200000);
    const std::string to_a = random.bytes(200000);
    Busy_direction forth(pair.a, pair.b, to_b, random.between(1, 1000000));
    Busy_direction back(pair.b, pair.a, to_a, random.between(1, 1000000));
    forth.join();
    back.join();
    EXPECT_TRUE(forth.got == to_b);
    EXPECT_TRUE(back.got == to_a);
}

} // namespace
