// A live link is printed and recorded; the replay of the record must print the same.

#include <tools/summary_text.h>

#include <support/builders/Frame_builder.h>
#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/processes/Program.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int epochs = 3600; // six minutes: sanitizers take ten times as long
#else
constexpr int epochs = 36000; // an hour
#endif

/// A summary without rates, which depend on the duration, and without the line about the log.
std::string without_rates(const std::string& summary) {
    std::istringstream lines(summary.substr(0, summary.find("log: ")));
    std::string figures;
    for (std::string line; std::getline(lines, line); figures += line + '\n')
        if (line.size() > 2 && line.compare(line.size() - 2, 2, "/s") == 0)
            line.erase(line.find_last_not_of(' ', line.rfind(' ')) + 1);
    return figures;
}

std::string only_file_in(const Temporary_folder& folder) {
    const auto files = std::filesystem::directory_iterator(folder.path());
    return begin(files)->path();
}

} // namespace

TEST(replayed_record, of_an_hour_prints_the_same_as_the_live_link) {
    const Temporary_folder folder;
    const std::string command = std::string("set -o pipefail; '") + RECEIVER_SIMULATOR + "' --rate 0 --epochs " +
                                std::to_string(epochs) +
                                " --noise 0.01 --corrupt 0.01 --nmea --automation --display | '" + RECEIVER_MONITOR +
                                "' --log '" + folder.path() + "'";
    const Program_result live = Program("bash", {"-c", command}).time_limit(std::chrono::minutes(4)).run();
    ASSERT_EQ(live.status, 0) << live.errors;
    EXPECT_THAT(live.errors, testing::HasSubstr("log: "));
    EXPECT_THAT(live.errors, testing::HasSubstr(" bytes in 1 file, 0 dropped\n"));

    const Program_result replayed =
        Program(RECEIVER_MONITOR, {"--replay", only_file_in(folder)}).time_limit(std::chrono::minutes(4)).run();
    EXPECT_EQ(replayed.status, 0);
    EXPECT_GT(replayed.output.size(), static_cast<std::size_t>(epochs) * 1000);
    EXPECT_TRUE(replayed.output == live.output);
    EXPECT_EQ(without_rates(replayed.errors), without_rates(live.errors));
}

TEST(replayed_record, keeps_its_pace_on_request) {
    const Temporary_folder folder;
    std::string record;
    for (std::uint32_t ms = 0; ms <= 2000; ms += 100)
        record += build_frame("~~", le(86400000 - 1000 + ms < 86400000 ? 86400000 - 1000 + ms : ms - 1000)); // midnight
    const std::string path = folder.make_file("record", record);
    const Stopwatch stopwatch;
    const Program_result result = Program(RECEIVER_MONITOR, {"--replay", path, "--speed", "4", "--quiet"}).run();
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(500));
    EXPECT_EQ(Summary(result.errors).counts, (Counts{{"~~", 21}}));
}

TEST(replayed_record, that_is_missing_or_no_file_is_one_line_and_status_1) {
    EXPECT_EQ(Program(RECEIVER_MONITOR, {"--replay", "/does/not/exist"}).run().errors,
              "Error opening '/does/not/exist': No such file or directory\n");
    const Program_result folder = Program(RECEIVER_MONITOR, {"--replay", "/"}).run();
    EXPECT_EQ(folder.status, 1);
    EXPECT_EQ(folder.errors, "receiver_monitor: cannot read /: Is a directory\n");
}

TEST(replayed_record, that_is_a_pipe_without_a_writer_ends_on_request) {
    const Temporary_folder folder;
    const Program_result result =
        Program(RECEIVER_MONITOR, {"--replay", folder.make_fifo("pipe"), "--duration", "0.1"}).run();
    EXPECT_TRUE(result.in_time);
    EXPECT_EQ(result.status, 2);
}

TEST(replayed_record, excludes_other_sources_and_commands) {
    for (const std::vector<std::string>& others :
         {std::vector<std::string>{"tcp:1"}, {"--device", "/dev/null"}, {"--send", "VER"}, {"--trace"}, {"-"}}) {
        std::vector<std::string> arguments = others;
        arguments.insert(arguments.end(), {"--replay", "/dev/null"});
        EXPECT_EQ(Program(RECEIVER_MONITOR, arguments).run().status, 1) << others[0];
    }
    EXPECT_EQ(Program(RECEIVER_MONITOR, {"--speed", "2"}).run().status, 1);
    for (const char* speed : {"-1", "fast", "1e7"})
        EXPECT_EQ(Program(RECEIVER_MONITOR, {"--replay", "/dev/null", "--speed", speed}).run().status, 1);
}
