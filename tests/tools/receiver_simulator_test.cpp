// The program as a user runs it.

#include "simulated_epochs.h"

#include <support/processes/Program.h>

#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

using Arguments = std::vector<std::string>;

Program simulator_with(Arguments arguments) {
    return Program(RECEIVER_SIMULATOR, std::move(arguments));
}

/// The bytes of the first epochs, from the simulator's classes.
std::string bytes_of_epochs(int epochs, const simulator::Simulated_receiver::Options& options = {}) {
    return Received_epochs(options).next_bytes(epochs);
}

/// Reports where two texts begin to differ, instead of both texts.
void expect_same_bytes(const std::string& actual, const std::string& expected) {
    EXPECT_EQ(actual.size(), expected.size());
    const auto parting = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    EXPECT_TRUE(parting.first == actual.end()) << "different bytes from " << parting.first - actual.begin() << " on";
}

void expect_refusal(const Arguments& arguments, const std::string& about) {
    const Program_result result = simulator_with(arguments).reader_leaves_after(1).run();
    EXPECT_EQ(result.status, 1) << about;
    EXPECT_EQ(result.output, "") << about;
    EXPECT_EQ(result.errors.rfind("receiver_simulator: ", 0), 0U) << result.errors;
    EXPECT_NE(result.errors.find(about), std::string::npos) << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    EXPECT_EQ(result.errors.back(), '\n');
}

} // namespace

TEST(receiver_simulator, sends_the_wanted_number_of_epochs) {
    const Program_result result = simulator_with({"--rate", "0", "--epochs", "25"}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    expect_same_bytes(result.output, bytes_of_epochs(25));
}

TEST(receiver_simulator, sends_nothing_for_0_epochs) {
    const Program_result result = simulator_with({"--epochs", "0"}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
}

TEST(receiver_simulator, options_reach_the_simulation) {
    simulator::Simulated_receiver::Options options;
    options.seed = 4000000000;
    options.interval_ms = 1000;
    options.noise = 0.25;
    options.corrupt = 0.5;
    options.crlf = options.automation = options.display = options.nmea = true;
    const Program_result result =
        simulator_with({"--rate=0", "--epochs=40", "--seed=4000000000", "--interval=1000", "--noise=0.25",
                        "--corrupt=0.5", "--crlf", "--automation", "--display", "--nmea"})
            .run();
    EXPECT_EQ(result.status, 0) << result.errors;
    expect_same_bytes(result.output, bytes_of_epochs(40, options));
}

TEST(receiver_simulator, rate_paces_and_changes_no_byte) {
    const auto start = std::chrono::steady_clock::now();
    const Program_result result = simulator_with({"--rate", "50", "--epochs", "11"}).run();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_EQ(result.status, 0);
    expect_same_bytes(result.output, bytes_of_epochs(11));
}

TEST(receiver_simulator, sends_10_epochs_a_second_by_default) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(simulator_with({"--epochs", "4"}).run().status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(receiver_simulator, ends_quietly_when_its_reader_closes) {
    for (const char* rate : {"0", "100"}) {
        const Program_result result = simulator_with({"--rate", rate}).reader_leaves_after(1000).run();
        EXPECT_TRUE(result.in_time);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors, "");
        expect_same_bytes(result.output, bytes_of_epochs(2).substr(0, 1000));
    }
}

TEST(receiver_simulator, waits_for_a_full_pipe_and_loses_nothing) {
    // The reader reads single bytes until far more bytes than a pipe holds were written.
    const std::string command =
        std::string("exec 2>&1; '") + RECEIVER_SIMULATOR +
        "' --rate 0 --epochs 400 | { dd bs=1 count=1000 status=none; dd bs=7 count=2000 status=none; cat; }";
    const Program_result result = Program("sh", {"-c", command}).run();
    EXPECT_EQ(result.status, 0);
    expect_same_bytes(result.output, bytes_of_epochs(400));
}

TEST(receiver_simulator, waits_for_a_non_blocking_output) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0); // the program gets the same pipe, with its flag, by number
    ASSERT_LT(ends[1], 10) << "a shell takes one digit";
    std::string received;
    Program_result result;
    std::thread reader([&] {
        char piece[1000];
        ssize_t n = 0;
        while ((n = read(ends[0], piece, sizeof piece)) != 0)
            if (n > 0)
                received.append(piece, static_cast<std::size_t>(n));
            else
                std::this_thread::yield();
    });
    const std::string command =
        "exec '" + std::string(RECEIVER_SIMULATOR) + "' --rate 0 --epochs 400 >&" + std::to_string(ends[1]);
    result = Program("sh", {"-c", command}).run();
    close(ends[1]);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(result.status, 0) << result.errors;
    expect_same_bytes(received, bytes_of_epochs(400));
}

TEST(receiver_simulator, full_disk_is_one_line_and_status_1) {
    const Program_result result = simulator_with({"--rate", "0"}).output_to("/dev/full").run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_simulator: cannot write to standard output: No space left on device\n");
}

TEST(receiver_simulator, closed_standard_output_is_one_line_and_status_1) {
    const Program_result result = simulator_with({"--rate", "0"}).without_output().run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_simulator: cannot write to standard output: Bad file descriptor\n");
}

TEST(receiver_simulator, help_is_on_standard_output) {
    const Program_result result = simulator_with({"--help"}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* option : {"--rate", "--epochs", "--interval", "--seed", "--noise", "--corrupt", "--crlf",
                               "--automation", "--display", "--nmea", "--help"})
        EXPECT_NE(result.output.find(option), std::string::npos) << option;
}

TEST(receiver_simulator, help_that_cannot_be_written_is_a_failure) {
    const Program_result result = simulator_with({"--help"}).output_to("/dev/full").run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_simulator: cannot write to standard output\n");
}

TEST(receiver_simulator, wrong_rates_are_refused) {
    expect_refusal({"--rate", "-1"}, "--rate");
    expect_refusal({"--rate=-0.5"}, "--rate");
    expect_refusal({"--rate", "nan"}, "--rate");
    expect_refusal({"--rate", "inf"}, "--rate");
    expect_refusal({"--rate", "10 Hz"}, "--rate");
    expect_refusal({"--rate"}, "--rate");
}

TEST(receiver_simulator, fractions_outside_0_to_1_are_refused) {
    for (const char* option : {"--noise", "--corrupt"})
        for (const char* value : {"-0.1", "1.01", "nan", "half", ""})
            expect_refusal({option, value}, option);
}

TEST(receiver_simulator, wrong_counts_and_seeds_are_refused) {
    expect_refusal({"--epochs", "-1"}, "--epochs");
    expect_refusal({"--epochs", "1.5"}, "--epochs");
    expect_refusal({"--epochs", "99999999999999999999999"}, "--epochs");
    expect_refusal({"--seed", "-1"}, "--seed");
    expect_refusal({"--seed", "4294967296"}, "--seed");
    expect_refusal({"--interval", "0"}, "--interval");
    expect_refusal({"--interval", "3600001"}, "--interval");
}

TEST(receiver_simulator, unknown_options_and_arguments_are_refused) {
    expect_refusal({"--speed", "3"}, "--speed");
    expect_refusal({"somewhere"}, "somewhere");
    expect_refusal({"one\ntwo"}, "one two");
    expect_refusal({"--rate", "1", "--rate", "2"}, "--rate");
}
