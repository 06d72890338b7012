// Records of the traffic, as a user makes them.

#include "running_monitor.h"
#include "simulated_epochs.h"
#include "summary_text.h"

#include <support/builders/Frame_builder.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <numeric>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string frame(std::uint32_t ms) {
    return build_frame("~~", le(ms));
}

std::string line(int ms) {
    return "RT ms=" + std::to_string(ms) + "\n";
}

struct receiver_monitor_log : testing::Test {
    /// The contents of all files, the oldest first.
    std::vector<std::string> logs() const {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            paths.push_back(entry.path());
        std::sort(paths.begin(), paths.end(), [](const auto& a, const auto& b) {
            const auto key = [](const std::string& name) { // "receiver_raw_20250512_063000", then "_000000" and on
                return std::make_pair(name.substr(0, 28), std::make_pair(name.size(), name));
            };
            return key(a.filename()) < key(b.filename());
        });
        std::vector<std::string> contents;
        for (const auto& path : paths)
            contents.push_back(folder.content_of(path.filename().string()));
        return contents;
    }
    std::string joined_logs() const {
        const std::vector<std::string> files = logs();
        return std::accumulate(files.begin(), files.end(), std::string());
    }
    bool has_files(std::size_t count) const {
        return eventually([&] { return logs().size() == count; });
    }

    Temporary_folder folder;
};

} // namespace

TEST_F(receiver_monitor_log, is_the_traffic_byte_for_byte) {
    simulator::Simulated_receiver::Options options;
    options.noise = options.corrupt = 0.1;
    const std::string traffic = Received_epochs(options).next_bytes(2000) + "no line end";
    const Program_result result =
        monitor_with({"--quiet", "--log", folder.path(), "--format", "comma"}).input(traffic).run();
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(logs().size(), 1U);
    EXPECT_TRUE(logs()[0] == traffic);
    EXPECT_THAT(result.errors, HasSubstr("log: " + std::to_string(traffic.size()) + " bytes in 1 file, 0 dropped\n"));
}

TEST_F(receiver_monitor_log, includes_bytes_that_were_not_parsed) {
    const Program_result result =
        monitor_with({"--log", folder.path(), "--count", "1"}).input(frame(1) + frame(2)).run();
    EXPECT_EQ(Summary(result.errors).account.arrived, 11U);
    EXPECT_THAT(logs(), ElementsAre(frame(1) + frame(2)));
}

TEST_F(receiver_monitor_log, records_a_stream_too) {
    const std::string path = folder.make_file("traffic", frame(1) + "noise\n" + frame(2));
    std::filesystem::create_directory(folder.path("logs"));
    const Program_result result = monitor_with({"exec:cat " + path, "--log", folder.path("logs")}).run();
    EXPECT_EQ(result.output, line(1) + line(2));
    std::filesystem::remove(path);
    std::filesystem::path log = std::filesystem::directory_iterator(folder.path("logs"))->path();
    EXPECT_EQ(folder.content_of("logs/" + log.filename().string()), frame(1) + "noise\n" + frame(2));
}

TEST_F(receiver_monitor_log, switched_on_later_begins_with_the_history) {
    Running_monitor monitor({"--log", folder.path(), "--history", "3600", "--log-later"});
    monitor.send(frame(1) + "half");
    monitor.expect_output(line(1));
    EXPECT_THAT(logs(), ElementsAre());
    monitor.signal(SIGUSR1);
    EXPECT_TRUE(has_files(1)) << "at once, without more bytes";
    monitor.send(" a line\n" + frame(2));
    monitor.expect_output(line(1) + line(2));
    monitor.signal(SIGINT);
    const Program_result& result = monitor.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(logs(), ElementsAre(frame(1) + "half a line\n" + frame(2)));
    EXPECT_THAT(result.errors, HasSubstr("log: 34 bytes in 1 file, 0 dropped\n"));
}

TEST_F(receiver_monitor_log, switched_on_later_without_history_begins_there) {
    Running_monitor monitor({"--log", folder.path(), "--log-later"});
    monitor.send(frame(1));
    monitor.expect_output(line(1));
    monitor.signal(SIGUSR1);
    EXPECT_TRUE(has_files(1));
    monitor.send(frame(2));
    monitor.expect_output(line(1) + line(2));
    monitor.signal(SIGINT);
    monitor.end();
    EXPECT_THAT(logs(), ElementsAre(frame(2)));
}

TEST_F(receiver_monitor_log, switched_off_and_on_omits_and_repeats_nothing) {
    Running_monitor monitor({"--log", folder.path(), "--history", "3600"});
    std::string output;
    for (int i = 1; i <= 5; ++i) { // on, off, on, off, on
        monitor.send(frame(static_cast<std::uint32_t>(i)));
        output += line(i);
        monitor.expect_output(output);
        if (i == 5)
            break;
        monitor.signal(SIGUSR1);
        if (i % 2 == 0) {
            EXPECT_TRUE(has_files(1 + static_cast<std::size_t>(i) / 2));
        }
        EXPECT_TRUE(eventually([&] { return monitor.rests(); })) << "the signal was handled";
    }
    monitor.signal(SIGINT);
    const Program_result& result = monitor.end();
    EXPECT_THAT(logs(), ElementsAre(frame(1), frame(2) + frame(3), frame(4) + frame(5)));
    EXPECT_THAT(result.errors, HasSubstr("log: 55 bytes in 3 files, 0 dropped\n"));
}

TEST_F(receiver_monitor_log, files_of_a_size_joined_are_the_traffic_byte_for_byte) {
    simulator::Simulated_receiver::Options options;
    options.noise = options.corrupt = 0.1;
    const std::string traffic = Received_epochs(options).next_bytes(2000);
    const Program_result result =
        monitor_with({"--quiet", "--log", folder.path(), "--log-rotate-size", "50000"}).input(traffic).run();
    EXPECT_EQ(result.status, 0);
    const std::vector<std::string> files = logs();
    for (const std::string& file : files)
        EXPECT_LE(file.size(), 50000U);
    EXPECT_GE(files.size(), traffic.size() / 50000);
    EXPECT_LE(files.size(), traffic.size() / 48000 + 1) << "files are almost full";
    EXPECT_TRUE(joined_logs() == traffic);
    EXPECT_THAT(result.errors, HasSubstr("log: " + std::to_string(traffic.size()) + " bytes in " +
                                         std::to_string(files.size()) + " files, 0 dropped\n"));
}

TEST_F(receiver_monitor_log, names_of_files_sort_in_the_order_of_the_traffic) {
    const std::string traffic = Received_epochs().next_bytes(200);
    monitor_with({"--quiet", "--log", folder.path(), "--log-rotate-size", "4096"}).input(traffic).run();
    const std::string joined = "LC_ALL=C; cat '" + folder.path() + "'/receiver_raw_*.log";
    EXPECT_TRUE(Program("sh", {"-c", joined}).run().output == traffic);
}

TEST_F(receiver_monitor_log, file_of_a_time_ends_with_the_first_bytes_after_it) {
    Running_monitor monitor({"--log", folder.path(), "--log-rotate", "1", "--quiet"});
    std::string traffic;
    EXPECT_TRUE(eventually([&] {
        const std::string next = frame(static_cast<std::uint32_t>(traffic.size()));
        monitor.send(next);
        traffic += next;
        return logs().size() >= 3;
    }));
    EXPECT_TRUE(eventually([&] { return joined_logs() == traffic; })) << "without a gap between them";
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end().status, 0);
}

TEST_F(receiver_monitor_log, only_the_last_files_are_kept_on_request) {
    folder.make_file("receiver_raw_20000101_000000.log", "earlier run");
    const std::string traffic = Received_epochs().next_bytes(500);
    const std::string config = "log=" + folder.path() + "\nlog-rotate-size=20000\nlog-keep=last\nquiet=true\n";
    const Temporary_folder elsewhere;
    monitor_with({"--config", elsewhere.make_file("ini", config)}).input(traffic).run();
    std::vector<std::string> files = logs();
    ASSERT_EQ(files.size(), 2U);
    if (traffic.find(files[0] + files[1]) == std::string::npos) // names within one second are reused
        std::swap(files[0], files[1]);
    const std::string kept = files[0] + files[1];
    EXPECT_GT(kept.size(), 19000U);
    EXPECT_TRUE(kept == traffic.substr(traffic.size() - kept.size()));
}

TEST_F(receiver_monitor_log, switched_on_again_between_rotations_omits_nothing) {
    Running_monitor monitor({"--log", folder.path(), "--history", "3600", "--log-rotate-size", "4096"});
    std::string traffic;
    std::string output;
    for (int part = 1; part <= 5; ++part) { // on, off, on, off, on
        for (int i = 0; i < 1000; ++i) {
            monitor.send(frame(static_cast<std::uint32_t>(i)));
            traffic += frame(static_cast<std::uint32_t>(i));
            output += line(i);
        }
        monitor.expect_output(output);
        if (part < 5)
            monitor.signal(SIGUSR1);
        EXPECT_TRUE(eventually([&] { return monitor.rests(); })) << "the signal was handled";
    }
    monitor.signal(SIGINT);
    EXPECT_THAT(monitor.end().errors, HasSubstr("log: 55000 bytes in "));
    EXPECT_GT(logs().size(), 10U);
    EXPECT_TRUE(joined_logs() == traffic);
}

TEST_F(receiver_monitor_log, directory_with_a_path_that_is_too_long_is_refused) {
    std::string directory = folder.path();
    while (directory.size() <= 256) {
        directory += "/" + std::string(100, 'd');
        std::filesystem::create_directory(directory);
    }
    const Program_result result = monitor_with({"--log", directory}).input(frame(1)).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_monitor: --log: longer than 256 characters: " + directory + "\n");
}

TEST_F(receiver_monitor_log, full_disk_is_reported_in_the_summary_and_stops_nothing) {
    const std::string traffic = Received_epochs().next_bytes(100);
    const std::string command = "ulimit -f 4; trap '' XFSZ; exec '" + std::string(RECEIVER_MONITOR) +
                                "' --quiet --log " + folder.path(); // 4 blocks of 512 or 1024 bytes
    const Program_result result = Program("sh", {"-c", command}).input(traffic).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, HasSubstr("background log write fail: File too large\n"));
    ASSERT_EQ(logs().size(), 1U);
    const std::size_t written = logs()[0].size();
    EXPECT_GT(written, 0U);
    EXPECT_EQ(logs()[0], traffic.substr(0, written));
    EXPECT_THAT(result.errors, HasSubstr("log: " + std::to_string(written) + " bytes in 1 file, " +
                                         std::to_string(traffic.size() - written) + " dropped\n"));
    EXPECT_THAT(result.errors, HasSubstr("bytes: " + std::to_string(traffic.size()) + " = "));
}

TEST_F(receiver_monitor_log, closed_standard_output_is_not_the_log) {
    const std::string command = "exec '" + std::string(RECEIVER_MONITOR) + "' --log '" + folder.path() + "' >&-";
    const Program_result result = Program("sh", {"-c", command}).input(frame(1)).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_monitor: cannot write to standard output: Bad file descriptor\n");
    EXPECT_THAT(logs(), ElementsAre(frame(1)));
}

TEST_F(receiver_monitor_log, directory_that_cannot_be_used_is_one_line_and_status_1) {
    const std::string file = folder.make_file("file", "");
    for (const std::string& directory : {file + "/below", file, std::string("/proc/none"), std::string("/proc")}) {
        const Program_result result = monitor_with({"--log", directory}).input(frame(1)).run();
        EXPECT_EQ(result.status, 1) << directory;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr(directory));
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
}

TEST_F(receiver_monitor_log, directory_that_is_missing_is_made_with_its_parents) {
    const std::string directory = folder.path("units/17/logs");
    const Program_result result = monitor_with({"--log", directory}).input(frame(1)).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    ASSERT_TRUE(std::filesystem::is_directory(directory));
    const std::filesystem::path log = std::filesystem::directory_iterator(directory)->path();
    EXPECT_EQ(folder.content_of("units/17/logs/" + log.filename().string()), frame(1));
}

TEST_F(receiver_monitor_log, reports_why_a_directory_cannot_be_made) {
    const std::string file = folder.make_file("file", "");
    const Program_result result = monitor_with({"--log", file + "/below"}).input(frame(1)).run();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "receiver_monitor: --log: cannot make " + file + "/below: Not a directory\n");
}

TEST_F(receiver_monitor_log, options_that_need_it_are_refused_without_it) {
    for (const Arguments& arguments :
         {Arguments{"--history", "5"}, Arguments{"--log-later"}, Arguments{"--log", folder.path(), "--history", "-1"},
          Arguments{"--log", folder.path(), "--history", "86401"}}) {
        const Program_result result = monitor_with(arguments).input(frame(1)).run();
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors, HasSubstr("--history"));
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
    for (const Arguments& arguments :
         {Arguments{"--log-rotate", "60"}, Arguments{"--log-rotate-size", "5000"}, Arguments{"--log-keep", "last"},
          Arguments{"--log", folder.path(), "--log-keep", "last"},
          Arguments{"--log", folder.path(), "--log-rotate", "0"},
          Arguments{"--log", folder.path(), "--log-rotate", "nan"},
          Arguments{"--log", folder.path(), "--log-rotate-size", "4095"},
          Arguments{"--log", folder.path(), "--log-rotate-size", "4096.5"},
          Arguments{"--log", folder.path(), "--log-rotate", "60", "--log-keep", "some"}}) {
        const Program_result result = monitor_with(arguments).input(frame(1)).run();
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors, HasSubstr(arguments[arguments.size() - 2]));
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
        EXPECT_THAT(logs(), ElementsAre());
    }
}
