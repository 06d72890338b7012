// Every source with its writer, and eight callers that log to all sources at the same time.

#include <support/builders/Numbered_pieces.h>
#include <support/files/Traffic_log.h>

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int pieces = 1500;

/// A source that is logged to, flushed, rotated and configured at the same time.
class Busy_log {
  public:
    explicit Busy_log(logging_source_t source) : source_(source), log_(source) {
        log_.keep_history(Traffic_log::long_span, 1 << 20);
    }

    void write(int caller, int number) {
        const std::string piece = Numbered_pieces::piece(caller, number);
        EXPECT_TRUE(log_.write(piece));
        written_ += piece.size();
        if (caller == 0 && number % 300 == 100)
            logging_source_flush(source_, true);
        if (caller == 1 && number % 400 == 200)
            log_.enable();
        if (caller == 2 && number % 50 == 0)
            log_.status();
        if (caller == 3 && number % 500 == 250)
            log_.configure(Traffic_log::long_span, 1 << 20);
        if (caller == 4 && number % 200 == 0)
            log_.settle();
    }

    void expect_all_written_or_counted() {
        log_.enable(); // writes the history that is left to a file
        log_.settle();
        log_.configure(Traffic_log::long_span, 1 << 20);
        Numbered_pieces found;
        for (const std::string& name : log_.files())
            found.expect_whole_and_in_order(log_.folder().content_of(name));
        EXPECT_EQ(found.bytes() + log_.dropped(), written_);
        EXPECT_GT(found.bytes(), 0U);
    }

  private:
    logging_source_t source_;
    Traffic_log log_;
    std::atomic<std::size_t> written_{0};
};

} // namespace

TEST(all_logging_sources, write_or_count_all_bytes_of_eight_callers) {
    std::array<Busy_log, logging_source_count> logs{
        Busy_log(logging_source_receiver), Busy_log(logging_source_corrections), Busy_log(logging_source_port)};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < Numbered_pieces::callers; ++caller)
        callers.emplace_back([&, caller] {
            for (int i = 0; i < pieces; ++i)
                for (Busy_log& log : logs)
                    log.write(caller, i);
        });
    for (std::thread& caller : callers)
        caller.join();
    for (Busy_log& log : logs)
        log.expect_all_written_or_counted();
}
