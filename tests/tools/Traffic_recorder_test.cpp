#include <monitor/Traffic_recorder.h>

#include <support/Captured_descriptor.h>
#include <support/Limited_file_size.h>
#include <support/Stopped_clock.h>
#include <support/Temporary_folder.h>
#include <support/Text_file.h>

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
        recorder.emplace(Traffic_recorder::Options{folder.path(), history, later});
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
    /// What is in the files, those of one second in the order of their opening.
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

TEST_F(Traffic_recorder_test, is_off_at_first_when_told_to_be) {
    ASSERT_TRUE(start(0, true));
    EXPECT_FALSE(recorder->is_on());
    take("unheard");
    EXPECT_THAT(contents(), ElementsAre());
    EXPECT_EQ(summary(), "log: 0 bytes in 0 files, 0 dropped\n") << "nobody wanted it: that is not dropped";
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

TEST_F(Traffic_recorder_test, each_switching_on_makes_a_file_that_begins_behind_the_one_before) {
    ASSERT_TRUE(start(3600, false));
    take("one ");
    recorder->toggle();
    EXPECT_FALSE(recorder->is_on());
    take("between ");
    recorder->toggle();
    take("two");
    recorder->switch_on(); // is on already
    EXPECT_THAT(contents(), ElementsAre("one ", "between two"));
    EXPECT_EQ(summary(), "log: 15 bytes in 2 files, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, history_reaches_back_as_far_as_told_however_many_pieces_it_comes_in) {
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

TEST_F(Traffic_recorder_test, new_recorder_knows_nothing_of_the_one_before) {
    ASSERT_TRUE(start(3600, false));
    take("first");
    recorder.reset();
    ASSERT_TRUE(start(3600, true));
    EXPECT_EQ(summary(), "log: 0 bytes in 0 files, 0 dropped\n");
    recorder->switch_on();
    EXPECT_THAT(contents(), ElementsAre("first", ""));
}

TEST_F(Traffic_recorder_test, everything_is_in_the_file_when_it_is_gone) {
    ASSERT_TRUE(start(0, false));
    const std::string piece(100000, 'x');
    for (int i = 0; i < 30; ++i)
        take(piece, true);
    recorder.reset();
    const auto files = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::filesystem::file_size(begin(files)->path()), 3000000U);
}

TEST_F(Traffic_recorder_test, directory_that_is_not_there_is_told_of_and_can_be_tried_again) {
    const Captured_descriptor errors(2);
    const std::string gone = folder.path("gone");
    recorder.emplace(Traffic_recorder::Options{gone, 0, false});
    EXPECT_FALSE(recorder->start());
    EXPECT_THAT(errors.text(), testing::HasSubstr("No such file or directory\n"));
    take("unheard");
    std::filesystem::create_directory(gone);
    recorder->toggle();
    EXPECT_TRUE(recorder->is_on());
    EXPECT_EQ(summary(), "log: 0 bytes in 1 file, 0 dropped\n");
}

TEST_F(Traffic_recorder_test, full_disk_is_dropped_bytes) {
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
