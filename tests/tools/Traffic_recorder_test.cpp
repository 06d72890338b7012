#include <monitor/Traffic_recorder.h>

#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Stopped_clock.h>
#include <support/faults/Limited_file_size.h>
#include <support/files/Temporary_folder.h>
#include <support/files/Text_file.h>

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

struct Traffic_recorder_test : testing::Test {
    bool start(double history, bool later) {
        Traffic_recorder::Options options;
        options.history = history;
        options.later = later;
        return start(options);
    }
    bool start(Traffic_recorder::Options options) {
        if (options.directory.empty())
            options.directory = folder.path();
        recorder.emplace(options);
        return recorder->start();
    }
    void take(const std::string& bytes, bool can_wait = false) {
        recorder->take(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()),
                       can_wait);
    }
    std::string summary() {
        Text_file text;
        recorder->print_summary(text.get());
        return text.text();
    }
    /// The contents of the files, in any order.
    std::vector<std::string> files() {
        recorder->settle();
        std::vector<std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            contents.push_back(folder.content_of(entry.path().filename().string()));
        return contents;
    }
    /// The contents of the files; those of the same second in the order of their opening.
    std::vector<std::string> contents() {
        recorder->settle();
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
            return a.substr(0, 28) != b.substr(0, 28) ? a < b
                                                      : std::make_pair(a.size(), a) < std::make_pair(b.size(), b);
        });
        std::vector<std::string> contents;
        for (const std::string& name : names) {
            EXPECT_EQ(name.rfind("receiver_raw_", 0), 0U) << name;
            contents.push_back(folder.content_of(name));
        }
        return contents;
    }

    Temporary_folder folder;
    std::optional<Traffic_recorder> recorder;
};

} // namespace

TEST_F(Traffic_recorder_test, records_from_the_start) {
    ASSERT_TRUE(start(0, false));
    take("one ");
    take("two");
    EXPECT_THAT(contents(), ElementsAre("one two"));
    EXPECT_EQ(summary(), "log: 7 bytes in 1 file, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, is_off_at_first_if_configured) {
    ASSERT_TRUE(start(0, true));
    EXPECT_FALSE(recorder->is_on());
    take("unrecorded");
    EXPECT_THAT(contents(), ElementsAre());
    EXPECT_EQ(summary(), "log: 0 bytes in 0 files, 0 dropped\n") << "bytes that are not recorded are not dropped";
}

TEST_F(Traffic_recorder_test, switched_on_later_begins_with_the_history) {
    ASSERT_TRUE(start(3600, true));
    take("before ");
    recorder->switch_on();
    take("after");
    EXPECT_THAT(contents(), ElementsAre("before after"));
    EXPECT_EQ(summary(), "log: 12 bytes in 1 file, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, switched_on_later_without_history_begins_there) {
    ASSERT_TRUE(start(0, true));
    take("before ");
    recorder->switch_on();
    take("after");
    EXPECT_THAT(contents(), ElementsAre("after"));
}

TEST_F(Traffic_recorder_test, each_file_begins_after_the_previous_one) {
    ASSERT_TRUE(start(3600, false));
    take("one ");
    recorder->toggle();
    EXPECT_FALSE(recorder->is_on());
    take("between ");
    recorder->toggle();
    take("two");
    recorder->switch_on(); // is already on
    EXPECT_THAT(contents(), ElementsAre("one ", "between two"));
    EXPECT_EQ(summary(), "log: 15 bytes in 2 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, history_has_the_configured_length_for_any_number_of_pieces) {
    Stopped_clock clock;
    ASSERT_TRUE(start(5, true));
    for (int i = 0; i < 20000; ++i) {
        take("x");
        clock.advance(1);
    }
    recorder->switch_on();
    const std::size_t size = contents().at(0).size();
    EXPECT_GE(size, 5000U);
    EXPECT_LE(size, 5000U + 5000 / 98 + 1);
}

TEST_F(Traffic_recorder_test, new_recorder_starts_without_the_previous_ones_history) {
    ASSERT_TRUE(start(3600, false));
    take("first");
    recorder.reset();
    ASSERT_TRUE(start(3600, true));
    EXPECT_EQ(summary(), "log: 0 bytes in 0 files, 0 dropped\n");
    recorder->switch_on();
    EXPECT_THAT(contents(), ElementsAre("first", ""));
}

TEST_F(Traffic_recorder_test, destructor_writes_everything_to_the_file) {
    ASSERT_TRUE(start(0, false));
    const std::string piece(100000, 'x');
    for (int i = 0; i < 30; ++i)
        take(piece, true);
    recorder.reset();
    const auto files = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::filesystem::file_size(begin(files)->path()), 3000000U);
}

TEST_F(Traffic_recorder_test, missing_directory_is_reported_and_can_be_tried_again) {
    const Captured_descriptor errors(2);
    const std::string missing = folder.path("missing");
    Traffic_recorder::Options options;
    options.directory = missing;
    EXPECT_FALSE(start(options));
    EXPECT_THAT(errors.text(), testing::HasSubstr("No such file or directory\n"));
    take("unrecorded");
    std::filesystem::create_directory(missing);
    recorder->toggle();
    EXPECT_TRUE(recorder->is_on());
    EXPECT_EQ(summary(), "log: 0 bytes in 1 file, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, full_disk_drops_bytes) {
    const Captured_descriptor errors(2);
    const Limited_file_size disk(1000);
    ASSERT_TRUE(start(0, false));
    for (int i = 0; i < 100; ++i) {
        take(std::string(50, 'x'));
        recorder->settle();
    }
    EXPECT_EQ(summary(), "log: 1000 bytes in 1 file, 4000 dropped\n");
    EXPECT_EQ(contents().at(0), std::string(1000, 'x'));
}

// ---- Rotations ----

TEST_F(Traffic_recorder_test, file_ends_with_its_time_and_the_next_begins_after_it) {
    Stopped_clock clock;
    Traffic_recorder::Options options;
    options.rotate_seconds = 2;
    ASSERT_TRUE(start(options));
    take("one ");
    clock.advance(1999);
    take("still one");
    clock.advance(1);
    EXPECT_EQ(contents().size(), 1U) << "not before more bytes arrive";
    take("two");
    clock.advance(1999);
    take(" still two");
    EXPECT_THAT(contents(), ElementsAre("one still one", "two still two"));
    EXPECT_EQ(summary(), "log: 26 bytes in 2 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, file_becomes_no_larger_than_configured) {
    Traffic_recorder::Options options;
    options.rotate_bytes = 10;
    ASSERT_TRUE(start(options));
    for (const char* piece : {"12345", "67890", "a", "longer than ten", "b", "23456789x", "c"})
        take(piece);
    EXPECT_THAT(contents(), ElementsAre("1234567890", "a", "longer than ten", "b23456789x", "c"))
        << "a piece larger than the limit has its own file";
    EXPECT_EQ(summary(), "log: 37 bytes in 5 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, history_counts_for_the_size_of_the_file_that_it_is_in) {
    Traffic_recorder::Options options;
    options.history = 3600;
    options.later = true;
    options.rotate_bytes = 10;
    ASSERT_TRUE(start(options));
    take("history");
    recorder->switch_on();
    take("1234");
    take("5");
    EXPECT_THAT(contents(), ElementsAre("history", "12345"));
}

TEST_F(Traffic_recorder_test, empty_file_is_not_rotated) {
    Stopped_clock clock;
    Traffic_recorder::Options options;
    options.rotate_seconds = 1;
    ASSERT_TRUE(start(options));
    clock.advance(5000);
    take("first");
    EXPECT_THAT(contents(), ElementsAre("first"));
}

TEST_F(Traffic_recorder_test, rotations_in_quick_succession_drop_and_repeat_nothing) {
    Traffic_recorder::Options options;
    options.rotate_bytes = 1000;
    ASSERT_TRUE(start(options));
    std::string traffic;
    for (int i = 0; i < 150; ++i) {
        const std::string piece(999, static_cast<char>('a' + i % 26));
        traffic += piece;
        take(piece); // as from a line that does not wait
    }
    std::string joined;
    for (const std::string& content : contents())
        joined += content;
    EXPECT_EQ(joined, traffic);
    EXPECT_EQ(summary(), "log: 149850 bytes in 150 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, all_files_stay_by_default) {
    folder.make_file("receiver_raw_20000101_000000.log", "earlier run");
    Traffic_recorder::Options options;
    options.rotate_bytes = 5;
    ASSERT_TRUE(start(options));
    for (const char* piece : {"aaaaa", "bbbbb", "ccccc"})
        take(piece);
    EXPECT_THAT(contents(), ElementsAre("earlier run", "aaaaa", "bbbbb", "ccccc"));
}

TEST_F(Traffic_recorder_test, rotation_keeps_the_last_file_if_configured) {
    folder.make_file("receiver_raw_20000101_000000.log", "earlier run");
    folder.make_file("not_ours", "not ours");
    Traffic_recorder::Options options;
    options.rotate_bytes = 5;
    options.keep_all = false;
    ASSERT_TRUE(start(options));
    take("aaaaa");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("earlier run", "aaaaa", "not ours"))
        << "until the first rotation";
    take("bbbbb");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("aaaaa", "bbbbb", "not ours"));
    take("ccccc");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("bbbbb", "ccccc", "not ours"));
    EXPECT_EQ(summary(), "log: 15 bytes in 3 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, directory_that_vanishes_is_reported_once_and_the_record_continues_when_it_returns) {
    Stopped_clock clock;
    const Captured_descriptor errors(2);
    for (const double history : {0.0, 3600.0}) {
        Traffic_recorder::Options options;
        options.directory = folder.path("brief");
        options.history = history;
        options.rotate_bytes = 5;
        std::filesystem::create_directory(options.directory);
        ASSERT_TRUE(start(options));
        take("aaaaa");
        recorder->settle();
        std::filesystem::remove_all(options.directory);
        take("bbbbb");
        EXPECT_TRUE(recorder->is_on());
        clock.advance(999);
        take("ccc");
        std::filesystem::create_directory(options.directory);
        take("dd"); // too early for another attempt
        clock.advance(1);
        take("eeeee");
        recorder->settle();
        std::vector<std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(options.directory))
            contents.push_back(folder.content_of("brief/" + entry.path().filename().string()));
        if (history > 0)
            EXPECT_THAT(contents, ElementsAre("bbbbbcccddeeeee"));
        else
            EXPECT_THAT(contents, ElementsAre("eeeee"));
        EXPECT_EQ(summary(),
                  history > 0 ? "log: 20 bytes in 2 files, 0 dropped\n" : "log: 10 bytes in 2 files, 10 dropped\n");
        std::filesystem::remove_all(options.directory);
    }
    const std::string reports = errors.text();
    EXPECT_EQ(std::count(reports.begin(), reports.end(), '\n'), 2) << reports;
}

TEST_F(Traffic_recorder_test, record_whose_directory_has_vanished_can_be_switched_off) {
    const Captured_descriptor errors(2);
    Traffic_recorder::Options options;
    options.directory = folder.path("brief");
    options.rotate_bytes = 5;
    std::filesystem::create_directory(options.directory);
    ASSERT_TRUE(start(options));
    take("aaaaa");
    recorder->settle();
    std::filesystem::remove_all(options.directory);
    take("bbbbb");
    recorder->toggle();
    EXPECT_FALSE(recorder->is_on());
    take("unrecorded");
    EXPECT_EQ(summary(), "log: 5 bytes in 1 file, 5 dropped\n");
}

TEST_F(Traffic_recorder_test, full_disk_drops_bytes_over_rotations) {
    const Captured_descriptor errors(2);
    const Limited_file_size disk(50);
    Traffic_recorder::Options options;
    options.rotate_bytes = 100;
    ASSERT_TRUE(start(options));
    for (int i = 0; i < 10; ++i)
        take(std::string(40, 'x'));
    EXPECT_EQ(summary(), "log: 250 bytes in 5 files, 150 dropped\n");
}
