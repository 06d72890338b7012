#include <glue/logging/logging_source.h>

#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Stopped_clock.h>
#include <support/faults/Allocation_counter.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/in_c_library.h>
#include <support/files/Traffic_log.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <dirent.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// All files of a test are of one second, so that their names show the order.
struct Logging_source : testing::Test {
    Logging_source() {
        calls.wall_clock_ms = [this] { return wall_clock_ms; };
    }

    std::int64_t wall_clock_ms = 1747031400123; // 2025-05-12 06:30:00
    Replaced_calls calls;
    Traffic_log log;
};

const std::string stem = "traffic_raw_20250512_063000";

bool calendar_fails = false;
std::string last_folder_read;

} // namespace

// The program's own definitions win over those of the shared libraries.

extern "C" std::tm* gmtime_r(const std::time_t* time, std::tm* result) noexcept {
    static const auto original = in_c_library(gmtime_r);
    return calendar_fails ? nullptr : original(time, result);
}

extern "C" DIR* opendir(const char* name) {
    static const auto original = in_c_library(opendir);
    last_folder_read = name;
    return original(name);
}

// ---- The content of files ----

TEST_F(Logging_source, file_begins_with_the_history_and_continues_with_new_bytes) {
    log.keep_history();
    EXPECT_TRUE(log.write("before "));
    EXPECT_TRUE(log.write("just before "));
    EXPECT_THAT(log.files(), ElementsAre());
    EXPECT_EQ(log.status().history_bytes, 19U);
    log.enable();
    EXPECT_TRUE(log.write("after"));
    log.settle();
    EXPECT_EQ(log.content(), "before just before after");
    EXPECT_EQ(log.status().history_bytes, 0U);
    EXPECT_EQ(log.status().file_bytes, 24U);
    EXPECT_EQ(log.status().path, log.folder().path(stem + ".log"));
    EXPECT_EQ(log.dropped(), 0U);
}

TEST_F(Logging_source, rotation_writes_the_history_and_leaves_no_file) {
    log.keep_history();
    log.write("one ");
    log.rotate();
    EXPECT_STREQ(log.status().path, "");
    log.write("two ");
    log.write("three ");
    log.rotate();
    EXPECT_THAT(log.contents(), ElementsAre("one ", "two three "));
    EXPECT_THAT(log.files(), ElementsAre(stem + ".log", stem + "_000000.log"));
}

TEST_F(Logging_source, rotation_ends_the_file_that_is_open) {
    log.keep_history();
    log.write("history ");
    log.enable();
    log.write("live");
    log.rotate();
    log.write("history again");
    log.enable();
    log.settle();
    EXPECT_THAT(log.contents(), ElementsAre("history live", "", "history again"));
}

TEST_F(Logging_source, history_that_wraps_round_is_written_in_order) {
    Stopped_clock clock;
    log.keep_history(Traffic_log::long_span, 10);
    for (const char* piece : {"aaaa", "bbbb", "cccc"}) {
        log.write(piece);
        clock.advance(1);
    }
    log.rotate();
    EXPECT_EQ(log.content(), "bbbbcccc");
}

TEST_F(Logging_source, bytes_that_were_written_to_a_file_are_not_written_again) {
    log.keep_history();
    log.write("first ");
    log.enable();
    log.write("second ");
    log.configure();
    log.write("third ");
    log.rotate();
    EXPECT_THAT(log.contents(), ElementsAre("first second ", "third "));
}

TEST_F(Logging_source, text_is_logged_up_to_its_nul) {
    log.configure();
    log.enable();
    EXPECT_TRUE(logging_source_write(logging_source_receiver, "text\0hidden"));
    EXPECT_TRUE(logging_source_write(logging_source_receiver, ""));
    log.settle();
    EXPECT_EQ(log.content(), "text");
}

TEST_F(Logging_source, direct_source_writes_without_history) {
    log.configure(1000, 100, true, true);
    EXPECT_FALSE(log.write("not enabled"));
    log.enable();
    EXPECT_TRUE(log.write("enabled"));
    log.settle();
    EXPECT_EQ(log.content(), "enabled");
    log.configure(1000, 100, true, false);
    EXPECT_TRUE(log.write("without file!"));
    EXPECT_EQ(log.status().history_bytes, 0U);
    EXPECT_EQ(log.dropped(), 13U);
}

TEST_F(Logging_source, direct_source_drops_bytes_after_a_rotation_until_it_is_switched_on) {
    log.configure(1000, 100, true, true);
    log.enable();
    log.write("one");
    log.rotate();
    EXPECT_TRUE(log.write("dropped"));
    EXPECT_EQ(log.dropped(), 7U);
    log.enable();
    log.write("two");
    log.settle();
    EXPECT_THAT(log.contents(), ElementsAre("one", "", "two"));
}

TEST_F(Logging_source, open_now_is_for_direct_sources_only) {
    log.configure(1000, 100, false, true);
    EXPECT_THAT(log.files(), ElementsAre());
}

TEST_F(Logging_source, file_of_a_direct_source_begins_with_the_history_from_before) {
    log.keep_history(1000, 100);
    log.write("history ");
    log.configure(1000, 100, true, true); // the same span and size: the history stays
    log.write("live");
    log.settle();
    EXPECT_EQ(log.content(), "history live");
}

TEST_F(Logging_source, large_pieces_are_written) {
    log.configure();
    log.enable();
    const std::string piece(200000, 'x');
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(log.write(piece));
        log.settle();
    }
    EXPECT_EQ(log.content(), std::string(4000000, 'x'));
}

// ---- Dropped bytes ----

TEST_F(Logging_source, writing_takes_nothing_from_the_heap) {
    log.keep_history(Traffic_log::long_span, 2000);
    const std::string piece(100, 'x');
    unsigned allocations = 0;
    const auto write_piece = [&] {
        const Allocation_counter counter;
        log.write(piece);
        allocations += counter.count();
    };
    for (int i = 0; i < 100; ++i)
        write_piece();
    EXPECT_EQ(allocations, 0U) << "into the history";
    log.enable();
    for (int i = 0; i < 100; ++i) {
        write_piece();
        log.settle(); // so that the queue is empty each time
    }
    EXPECT_EQ(allocations, 0U) << "for a file";
}

TEST_F(Logging_source, source_that_is_off_drops_nothing_and_keeps_nothing) {
    log.configure();
    EXPECT_FALSE(log.write("x"));
    EXPECT_FALSE(logging_source_is_enabled(logging_source_receiver));
    EXPECT_EQ(log.status().history_bytes, 0U);
    EXPECT_EQ(log.dropped(), 0U);
}

TEST_F(Logging_source, switching_off_leaves_the_file_open) {
    log.configure();
    log.enable();
    log.write("one ");
    log.enable(false);
    EXPECT_FALSE(log.write("ignored "));
    log.enable();
    log.write("two");
    log.settle();
    EXPECT_EQ(log.content(), "one two");
}

TEST_F(Logging_source, piece_as_large_as_the_history_is_dropped) {
    log.keep_history(Traffic_log::long_span, 10);
    log.write("kept");
    EXPECT_TRUE(log.write("0123456789"));
    EXPECT_EQ(log.status().history_bytes, 4U);
    EXPECT_EQ(log.dropped(), 10U);
    EXPECT_TRUE(log.write("012345678"));
    EXPECT_EQ(log.status().history_bytes, 9U) << "older bytes were dropped for it";
    EXPECT_EQ(log.dropped(), 10U);
}

TEST_F(Logging_source, without_a_span_there_is_no_history) {
    log.keep_history(0, 1000);
    EXPECT_TRUE(log.write("dropped"));
    EXPECT_EQ(log.status().history_bytes, 0U);
    EXPECT_EQ(log.dropped(), 7U);
}

TEST_F(Logging_source, history_is_kept_when_span_and_size_are_configured_the_same) {
    log.keep_history(5000, 1000);
    log.write("kept");
    log.configure(5000, 1000);
    EXPECT_EQ(log.status().history_bytes, 4U);
    log.configure(6000, 1000);
    EXPECT_EQ(log.status().history_bytes, 4U) << "only span or no span matters";
    log.configure(6000, 1001);
    EXPECT_EQ(log.status().history_bytes, 0U);
    log.write("kept");
    log.configure(0, 1001);
    EXPECT_EQ(log.status().history_bytes, 0U);
}

// ---- How far the history reaches back ----

TEST_F(Logging_source, history_reaches_back_exactly_as_far_as_its_span) {
    Stopped_clock clock;
    log.keep_history(1000);
    log.write("a");
    clock.advance(1);
    log.write("b");
    clock.advance(999);
    log.write("c");
    EXPECT_EQ(log.status().history_bytes, 3U) << "a is exactly 1000 ms old";
    clock.advance(1);
    log.write("d");
    EXPECT_EQ(log.status().history_bytes, 3U) << "a is dropped, b is exactly 1000 ms old";
    log.rotate();
    EXPECT_EQ(log.content(), "bcd");
}

TEST_F(Logging_source, history_has_a_hundred_moments_at_most) {
    Stopped_clock clock;
    log.keep_history();
    for (int i = 0; i < 100; ++i) {
        log.write("x");
        log.write("x"); // of the same moment
        clock.advance(1);
    }
    EXPECT_EQ(log.status().history_bytes, 200U);
    log.write("y");
    EXPECT_EQ(log.status().history_bytes, 199U) << "the oldest moment is dropped with its bytes";
}

TEST_F(Logging_source, history_of_many_grouped_moments_reaches_back_as_far_as_its_span) {
    Stopped_clock clock;
    logging_source_use_time_of_writing(logging_source_receiver, true, 11);
    log.keep_history(1000, 10000);
    for (int i = 0; i < 5000; ++i) { // one every millisecond
        log.write("x");
        clock.advance(1);
        if (i < 1000)
            continue;
        ASSERT_GE(log.status().history_bytes, 1000U) << i;
        ASSERT_LE(log.status().history_bytes, 1000U + 11U) << i;
    }
}

TEST_F(Logging_source, group_of_no_time_is_a_millisecond) {
    Stopped_clock clock;
    logging_source_use_time_of_writing(logging_source_receiver, true, 0);
    log.keep_history(10);
    log.write("a");
    clock.advance(11);
    log.write("b");
    EXPECT_EQ(log.status().history_bytes, 1U);
}

TEST_F(Logging_source, moments_of_a_written_history_are_dropped) {
    Stopped_clock clock;
    log.keep_history(1000);
    log.write(std::string(500, 'o'));
    log.rotate();
    clock.advance(500);
    log.write("new");
    clock.advance(501);
    log.write("er");
    EXPECT_EQ(log.status().history_bytes, 5U) << "written bytes are not dropped a second time";
}

TEST_F(Logging_source, usual_key_is_the_period_times_the_remainder) {
    Stopped_clock clock;
    logging_source_use_time_of_writing(logging_source_receiver, false);
    logging_source_testing_override_timed_bucket_ms(
        4000000000U); // longer than a machine runs: the remainder is the time
    log.keep_history(1);
    log.write("a");
    clock.advance(100000);
    log.write("b");
    EXPECT_EQ(log.status().history_bytes, 2U) << "keys are billions of times larger than times: nothing is too old";
    logging_source_testing_override_timed_bucket_ms(0);
    log.write("c");
    EXPECT_EQ(log.status().history_bytes, 3U) << "a period of 0 is ignored";
    logging_source_testing_override_timed_bucket_ms(1);
    clock.advance(1);
    log.write("d");
    EXPECT_EQ(log.status().history_bytes, 4U);
    clock.advance(1);
    log.write("e");
    EXPECT_EQ(log.status().history_bytes, 4U + 1U) << "the oldest keys are still in the history";
}

TEST_F(Logging_source, writes_of_one_millisecond_of_different_seconds_share_a_key) {
    Stopped_clock clock;
    logging_source_use_time_of_writing(logging_source_receiver, false);
    log.keep_history();
    for (int i = 0; i < 150; ++i) { // more moments than a hundred, but one key
        log.write("x");
        clock.advance(1000);
    }
    EXPECT_EQ(log.status().history_bytes, 150U);
}

// ---- Names ----

TEST_F(Logging_source, files_of_one_second_are_numbered) {
    log.keep_history();
    for (int i = 0; i < 3; ++i)
        log.rotate();
    EXPECT_THAT(log.files(), ElementsAre(stem + ".log", stem + "_000000.log", stem + "_000001.log"));
    wall_clock_ms += 1000;
    log.rotate();
    EXPECT_THAT(log.files(), testing::Contains("traffic_raw_20250512_063001.log"));
}

TEST_F(Logging_source, clock_that_jumps_back_overwrites_nothing) {
    log.keep_history();
    log.write("first");
    log.rotate();
    wall_clock_ms += 5000;
    log.rotate();
    wall_clock_ms -= 5000;
    log.write("second");
    log.rotate();
    EXPECT_EQ(log.folder().content_of(stem + ".log"), "first");
    EXPECT_EQ(log.folder().content_of(stem + "_000000.log"), "second");
}

TEST_F(Logging_source, clock_that_jumps_makes_no_history_older_or_younger) {
    Stopped_clock clock;
    log.keep_history(1000);
    log.write("a");
    wall_clock_ms += 86400000;
    clock.advance(500);
    log.write("b");
    wall_clock_ms -= 2 * 86400000L;
    clock.advance(500);
    log.write("c");
    EXPECT_EQ(log.status().history_bytes, 3U);
    clock.advance(1);
    log.write("d");
    EXPECT_EQ(log.status().history_bytes, 3U) << "a has become too old";
}

TEST_F(Logging_source, slash_and_underscore_are_not_doubled) {
    const std::string directory = log.folder().path() + "/";
    logging_source_configure(logging_source_receiver, true, 0, 0, directory.c_str(), "n", "s_", true);
    EXPECT_EQ(log.status().path, log.folder().path("n_s_20250512_063000.log"));
    logging_source_configure(logging_source_receiver, true, 0, 0, directory.c_str(), "n", "", true);
    EXPECT_EQ(log.status().path, log.folder().path("n_20250512_063000.log"));
    EXPECT_EQ(log.files().size(), 2U);
}

TEST_F(Logging_source, fields_are_cut_at_256_characters) {
    const std::string name(300, 'n');
    logging_source_configure(logging_source_receiver, true, 0, 0, log.folder().path().c_str(), name.c_str(), "s", true);
    EXPECT_STREQ(log.status().path, "") << "no file system takes such a name";
    EXPECT_THAT(log.files(), ElementsAre());
}

TEST_F(Logging_source, path_in_the_status_is_never_cut) {
    std::string directory = log.folder().path() + "/"; // 256 characters, then a name of 255
    while (directory.size() < 256) {
        directory += std::string(std::min<std::size_t>(100, 256 - directory.size() - 1), 'd') + "/";
        std::filesystem::create_directory(directory);
        if (directory.size() == 255)
            directory += "/";
    }
    const std::string name(255 - std::string("_s_20250512_063000.log").size(), 'n');
    logging_source_configure(logging_source_receiver, true, 0, 0, directory.c_str(), name.c_str(), "s", true);
    EXPECT_EQ(log.status().path, directory + name + "_s_20250512_063000.log");
}

TEST_F(Logging_source, time_that_no_calendar_has_is_unknown) {
    calendar_fails = true;
    for (int i = 0; i < 2; ++i)
        log.configure(0, 0, true, true);
    calendar_fails = false;
    EXPECT_THAT(log.files(), ElementsAre("traffic_raw_-unknown-.log", "traffic_raw_-unknown-_000000.log"));
}

TEST_F(Logging_source, empty_directory_is_the_root_for_opening_and_for_deleting) {
    const std::string name = log.folder().path().substr(1) + "/traffic"; // the path after the root
    logging_source_configure(logging_source_receiver, true, 0, 0, "", name.c_str(), "raw", true);
    EXPECT_EQ(log.status().path, log.folder().path(stem + ".log"));
    logging_source_delete_all(logging_source_receiver);
    EXPECT_EQ(last_folder_read, "/");
}

TEST_F(Logging_source, null_is_an_empty_text) {
    logging_source_configure(logging_source_receiver, true, 0, 0, log.folder().path().c_str(), nullptr, nullptr, true);
    EXPECT_THAT(log.files(), ElementsAre("_20250512_063000.log"));
    logging_source_configure(logging_source_receiver, false, 0, 0, nullptr, "n", "s", false);
    logging_source_delete_old(logging_source_receiver);
    EXPECT_EQ(last_folder_read, "/");
    log.configure();
    EXPECT_FALSE(logging_source_write(logging_source_receiver, nullptr));
    log.enable();
    EXPECT_TRUE(logging_source_write(logging_source_receiver, nullptr));
    EXPECT_TRUE(logging_source_write(logging_source_receiver, nullptr, nullptr));
    log.settle();
    EXPECT_EQ(log.status().file_bytes, 0U);
    EXPECT_EQ(log.dropped(), 0U);
}

// ---- Deleting ----

TEST_F(Logging_source, deleting_old_files_keeps_the_one_opened_last) {
    log.keep_history();
    for (const char* piece : {"one", "two", "three"}) {
        log.write(piece);
        log.rotate();
    }
    const std::string other = log.folder().make_file("traffic_rawest.log", "not ours");
    log.folder().make_file("other_raw_20250512_063000.log", "not ours");
    logging_source_delete_old(logging_source_receiver);
    EXPECT_THAT(log.files(), ElementsAre("other_raw_20250512_063000.log", stem + "_000001.log", "traffic_rawest.log"));
    logging_source_delete_all(logging_source_receiver);
    EXPECT_THAT(log.files(), ElementsAre("other_raw_20250512_063000.log", "traffic_rawest.log"));
}

TEST_F(Logging_source, deleting_includes_every_name_that_begins_like_the_files) {
    log.configure();
    log.folder().make_file("traffic_raw_notes.txt", "not even a log");
    log.folder().make_file("traffic_raw_other_20250512_063000.log", "of a source with a longer suffix");
    log.folder().make_file("traffic_ra_20250512_063000.log", "of one with a shorter suffix");
    logging_source_delete_old(logging_source_receiver);
    EXPECT_THAT(log.files(), ElementsAre("traffic_ra_20250512_063000.log"));
}

TEST_F(Logging_source, file_that_is_open_may_be_deleted) {
    log.configure();
    log.enable();
    log.write("x");
    logging_source_delete_all(logging_source_receiver);
    EXPECT_TRUE(log.write("y"));
    log.settle();
    EXPECT_THAT(log.files(), ElementsAre());
}

// ---- A missing directory ----

TEST_F(Logging_source, missing_directory_is_reported_once_and_history_continues) {
    const std::string directory = log.folder().path("later");
    const auto configure = [&] {
        logging_source_configure(logging_source_receiver, false, Traffic_log::long_span, 1000, directory.c_str(), "n",
                                 "s", false);
    };
    log.keep_history();
    configure();
    const Captured_descriptor errors(2);
    log.write("kept ");
    log.enable();
    log.write("and kept");
    log.rotate();
    EXPECT_EQ(errors.text(), directory + "/n_s_20250512_063000.log: No such file or directory\n");
    EXPECT_EQ(log.status().history_bytes, 13U);
    std::filesystem::create_directory(directory);
    log.enable();
    log.settle();
    EXPECT_EQ(log.folder().content_of("later/n_s_20250512_063000.log"), "kept and kept");
    EXPECT_EQ(log.dropped(), 0U);
}

TEST_F(Logging_source, removed_directory_costs_only_the_files_in_it) {
    const std::string directory = log.folder().path("brief");
    std::filesystem::create_directory(directory);
    log.keep_history();
    logging_source_configure(logging_source_receiver, false, Traffic_log::long_span, 1000, directory.c_str(), "n", "s",
                             false);
    log.enable();
    log.write("lost");
    std::filesystem::remove_all(directory);
    EXPECT_TRUE(log.write("lost, too"));
    log.settle();
    std::filesystem::create_directory(directory);
    log.rotate();
    EXPECT_TRUE(log.folder().has("brief/n_s_20250512_063000.log"));
}

TEST_F(Logging_source, sources_are_independent) {
    Traffic_log other(logging_source_port);
    other.configure();
    other.enable();
    log.keep_history();
    other.write("other");
    log.write("history");
    other.settle();
    EXPECT_EQ(other.content(), "other");
    EXPECT_THAT(log.files(), ElementsAre());
    EXPECT_EQ(log.status().history_bytes, 7U);
}

TEST_F(Logging_source, source_that_does_not_exist_stops_the_process) {
    EXPECT_DEATH(logging_source_is_enabled(static_cast<logging_source_t>(3)), "glue/logging/logging_source.cpp");
}
