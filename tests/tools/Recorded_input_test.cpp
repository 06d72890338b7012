#include <monitor/Recorded_input.h>

#include <monitor/Link_watcher.h>
#include <monitor/Monitor.h>
#include <monitor/Receiver_input.h>

#include <support/fakes/Standard_input.h>
#include <support/files/Temporary_folder.h>
#include <support/files/Text_file.h>

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string_view>

namespace {

/// A watcher that runs for a limited time.
struct Timed_watcher : Link_watcher {
    void see_arrival(std::uint64_t) override {}
    void see_packet(int, unsigned char*, unsigned) override {}
    void see_sentence(std::string_view) override {}
    void see_account(const Vesk_parser::Byte_counts&) override {}
    void see_end() override {
        ends = Atime::now() + 200;
        raise(SIGUSR1);
    }
    bool attend() override {
        ++attended;
        return !ends || Atime::now() < *ends;
    }
    Atime due() const override { return Atime::now() + 100; }

    std::optional<Atime> ends;
    int attended = 0;
};

} // namespace

TEST(Recorded_input, signal_after_the_end_of_the_input_switches_the_record_once_without_busy_waiting) {
    const Temporary_folder folder;
    const Standard_input standard("");
    Traffic_recorder::Options log;
    log.directory = folder.path();
    log.later = true;
    Traffic_recorder recorder(log);
    Interrupt interrupt(true);
    Recorded_input input(std::make_unique<Receiver_input>(), recorder, interrupt);
    Text_file output;
    Monitor monitor({}, input, interrupt, output.get());
    Timed_watcher onlooker;
    monitor.set_watcher(&onlooker);
    EXPECT_EQ(monitor.run(), Monitor::End::input);
    EXPECT_TRUE(recorder.is_on());
    EXPECT_LE(onlooker.attended, 10);
}
