#include <monitor/Replay_input.h>

#include "simulated_epochs.h"

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Stopped_clock.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Arrival = Link_input::Arrival;

std::string time_frame(std::uint32_t ms, std::string_view line_end = "\n") {
    return build_frame("~~", le(ms), Checksum::binary, line_end);
}

struct Replay_input_test : testing::Test {
    void replay(const std::string& record, double speed) {
        input.emplace(speed);
        ASSERT_TRUE(input->open(folder.make_file("record", record)));
    }
    /// Waits once, without a delay, and consumes what was delivered.
    Arrival wait_once(std::string& bytes) {
        const Arrival arrival = input->wait(Atime::now(), wake_up.reading());
        bytes += buffered(*input);
        input->drop_all();
        return arrival;
    }
    /// Consumes everything that is delivered without a delay.
    std::string delivered() {
        std::string bytes;
        while (wait_once(bytes) == Arrival::bytes) {
        }
        return bytes;
    }

    Stopped_clock clock;
    Temporary_folder folder;
    Pipe wake_up;
    std::optional<Replay_input> input;
};

} // namespace

TEST_F(Replay_input_test, delivers_the_record_byte_for_byte_and_ends) {
    simulator::Simulated_receiver::Options options;
    options.noise = options.corrupt = 0.2;
    const std::string record = Received_epochs(options).next_bytes(1000);
    replay(record, 0);
    EXPECT_TRUE(delivered() == record);
    std::string rest;
    EXPECT_EQ(wait_once(rest), Arrival::end);
    EXPECT_EQ(input->arrived(), record.size());
    EXPECT_EQ(input->error(), 0);
}

TEST_F(Replay_input_test, delivers_random_records_byte_for_byte_at_any_speed) {
    Random random;
    for (int round = 0; round < 200; ++round) {
        std::string record;
        for (unsigned i = random.between(0, 30); i > 0; --i)
            record += random.one_in(2) ? time_frame(random.between(0, 90000000)) : random.bytes(random.between(0, 30));
        if (random.one_in(10))
            record += std::string(70000, '~') + time_frame(1);
        replay(record, random.one_in(2) ? 0 : 1000);
        std::string received;
        while (wait_once(received) != Arrival::end)
            clock.advance(1000);
        ASSERT_TRUE(received == record) << round;
    }
}

TEST_F(Replay_input_test, empty_file_is_an_end) {
    replay("", 1);
    std::string bytes;
    EXPECT_EQ(wait_once(bytes), Arrival::end);
}

TEST_F(Replay_input_test, delivers_epochs_at_their_pace) {
    const std::string first = "rest of an epoch\n" + time_frame(1000) + "one\n";
    const std::string second = time_frame(1100, "\r\n") + "two\n";
    const std::string third = time_frame(1200) + "three";
    replay(first + second + third, 2);
    EXPECT_EQ(delivered(), first);
    clock.advance(49);
    EXPECT_EQ(delivered(), "");
    clock.advance(1);
    EXPECT_EQ(delivered(), second);
    clock.advance(49);
    std::string bytes;
    EXPECT_EQ(wait_once(bytes), Arrival::nothing);
    clock.advance(1);
    EXPECT_EQ(delivered(), third);
    EXPECT_EQ(wait_once(bytes), Arrival::end);
}

TEST_F(Replay_input_test, bytes_that_resemble_a_time_message_cause_no_wait) {
    std::string wrong_checksum = time_frame(5000);
    wrong_checksum[9] = static_cast<char>(wrong_checksum[9] ^ 1);
    const std::string record = time_frame(1000) + wrong_checksum + time_frame(86400000) + // no time of a day
                               time_frame(5000, "x") + build_frame("~~", "12345") + "~~005" + "~~";
    replay(record, 1);
    EXPECT_EQ(delivered(), record);
}

TEST_F(Replay_input_test, delivers_epochs_after_midnight_and_after_a_gap) {
    const std::string before = time_frame(86399000);
    const std::string midnight = time_frame(0);
    const std::string next_day = time_frame(40000000);
    replay(before + midnight + next_day, 1);
    EXPECT_EQ(delivered(), before);
    clock.advance(1000);
    EXPECT_EQ(delivered(), midnight + next_day);
}

TEST_F(Replay_input_test, waits_no_longer_than_the_deadline) {
    const std::string second = time_frame(3600000);
    replay(time_frame(0) + second, 1);
    delivered();
    EXPECT_EQ(input->wait(Atime::now() + 0, wake_up.reading()), Arrival::nothing);
}

TEST_F(Replay_input_test, wake_up_is_reported_first) {
    replay(time_frame(0), 0);
    write_all(wake_up.writing(), "!");
    EXPECT_EQ(input->wait(std::nullopt, wake_up.reading()), Arrival::wake_up);
    EXPECT_EQ(input->arrived(), 0U);
}

TEST_F(Replay_input_test, full_ring_loses_nothing) {
    const std::string record(10000, 'x');
    replay(record, 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(input->wait(Atime::now(), wake_up.reading()), Arrival::bytes);
    EXPECT_EQ(buffered(*input), record.substr(0, Data_stream::rx_capacity));
    input->drop_all();
    EXPECT_EQ(delivered(), record.substr(Data_stream::rx_capacity));
}

TEST_F(Replay_input_test, missing_file_is_reported) {
    const Captured_descriptor errors(2);
    Replay_input missing(0);
    EXPECT_FALSE(missing.open("/does/not/exist"));
    EXPECT_EQ(errors.text(), "Error opening '/does/not/exist': No such file or directory\n");
}

TEST_F(Replay_input_test, file_that_cannot_be_read_ends_with_its_error) {
    Replay_input folder_as_record(0);
    ASSERT_TRUE(folder_as_record.open(folder.path()));
    EXPECT_EQ(folder_as_record.wait(std::nullopt, wake_up.reading()), Arrival::end);
    EXPECT_EQ(folder_as_record.error(), EISDIR);
}

TEST_F(Replay_input_test, cannot_be_written_to) {
    replay("", 0);
    EXPECT_EQ(input->__write(reinterpret_cast<const unsigned char*>("x"), 1), -1);
    EXPECT_FALSE(input->bytes_avail(1U));
}

TEST_F(Replay_input_test, pipe_is_waited_for_and_ends_with_its_writer) {
    input.emplace(0);
    ASSERT_TRUE(input->open(folder.make_fifo("pipe"))) << "without a writer";
    std::string received;
    EXPECT_EQ(wait_once(received), Arrival::nothing);
    {
        const int writer = open(folder.path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(wait_once(received), Arrival::nothing) << "the writer has connected, not closed";
        write_all(writer, time_frame(0) + "half");
        while (wait_once(received) == Arrival::bytes) {
        }
        EXPECT_EQ(received, (time_frame(0) + "half").substr(0, 5)) << "the rest may begin an epoch";
        write_all(wake_up.writing(), "!");
        EXPECT_EQ(wait_once(received), Arrival::wake_up);
        char byte = 0;
        EXPECT_EQ(read(wake_up.reading(), &byte, 1), 1);
        write_all(writer, " a line");
        close(writer);
    }
    while (wait_once(received) == Arrival::bytes) {
    }
    EXPECT_EQ(received, time_frame(0) + "half a line");
    EXPECT_EQ(wait_once(received), Arrival::end);
    EXPECT_EQ(input->error(), 0);
}

TEST_F(Replay_input_test, readable_pipe_ends_the_wait) {
    input.emplace(0);
    ASSERT_TRUE(input->open(folder.make_fifo("pipe")));
    const int writer = open(folder.path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
    std::thread receiver([&] { write_all(writer, time_frame(0)); });
    const Stopwatch stopwatch;
    const Atime deadline = Atime::now() + 60000;
    while (input->wait(deadline, wake_up.reading()) == Arrival::nothing &&
           stopwatch.elapsed() < std::chrono::seconds(30)) {
    }
    EXPECT_LT(stopwatch.elapsed(), std::chrono::seconds(30));
    receiver.join();
    close(writer);
}

TEST_F(Replay_input_test, pipe_in_single_bytes_is_delivered_byte_for_byte) {
    simulator::Simulated_receiver::Options options;
    options.noise = 0.2;
    const std::string record = Received_epochs(options).next_bytes(3);
    input.emplace(1000);
    ASSERT_TRUE(input->open(folder.make_fifo("pipe")));
    std::string received;
    {
        const int writer = open(folder.path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
        for (const char byte : record) {
            write_all(writer, std::string(1, byte));
            clock.advance(1000);
            wait_once(received);
        }
        close(writer);
    }
    while (wait_once(received) != Arrival::end)
        clock.advance(1000);
    EXPECT_TRUE(received == record);
}
