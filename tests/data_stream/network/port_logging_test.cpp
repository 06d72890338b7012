#include <glue/data_stream/port_logging.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::vector<std::string> snooped;

struct Port_logging_test : testing::Test {
    void SetUp() override {
        snooped.clear();
        snoop_logger = nullptr;
        Debug::Print::enable(port_logging_category, false);
    }
    void TearDown() override { SetUp(); }

    static void set_logger() {
        snoop_logger = [](const char* text, unsigned length) { snooped.emplace_back(text, length); };
    }
    static void log(const std::string& bytes, unsigned* counter = nullptr) {
        do_port_logging(Debug::Print::enabled(port_logging_category), "the port", "RD", bytes_of(bytes),
                        bytes_of(bytes) + bytes.size(), counter);
    }
};

TEST_F(Port_logging_test, nothing_happens_without_printer_and_logger) {
    const Captured_debug debug;
    unsigned counter = 5;
    log("abc", &counter);
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(counter, 5U);
}

TEST_F(Port_logging_test, printer_receives_a_line_with_time_name_direction_and_count) {
    const Captured_debug debug;
    Debug::Print::enable(136, true);
    log("a\r\n");
    EXPECT_EQ(debug.text_without_times(), "<time> the port[RD](3): a\\r\\n\n");
    EXPECT_TRUE(snooped.empty());
}

TEST_F(Port_logging_test, counter_grows_and_is_printed) {
    const Captured_debug debug;
    Debug::Print::enable(136, true);
    unsigned counter = 5;
    log("abc", &counter);
    EXPECT_EQ(counter, 8U);
    EXPECT_EQ(debug.text_without_times(), "<time> the port[RD](3/8): abc\n");
}

TEST_F(Port_logging_test, logger_receives_the_same_text_with_the_category_on_or_off) {
    const Captured_debug debug;
    set_logger();
    log("abc");
    EXPECT_EQ(debug.text(), "");
    ASSERT_EQ(snooped.size(), 1U);
    EXPECT_EQ(snooped[0].substr(13), "the port[RD](3): abc\n");
    Debug::Print::enable(136, true);
    log("abc");
    ASSERT_EQ(snooped.size(), 2U);
    EXPECT_EQ(debug.text(), snooped[1]);
}

TEST_F(Port_logging_test, empty_range_writes_nothing) {
    const Captured_debug debug;
    set_logger();
    Debug::Print::enable(136, true);
    log("");
    EXPECT_EQ(debug.text(), "");
    EXPECT_TRUE(snooped.empty());
}

TEST_F(Port_logging_test, long_range_is_split_and_the_first_piece_has_the_head_and_the_last_the_line_feed) {
    set_logger();
    log(std::string(9000, 'x'));
    const std::string head = "the port[RD](9000): ";
    ASSERT_EQ(snooped.size(), 3U);
    EXPECT_EQ(snooped[0].size(), 4001U);
    EXPECT_EQ(snooped[0].substr(13), head + std::string(4001 - 13 - head.size(), 'x'));
    EXPECT_EQ(snooped[1], std::string(4001, 'x'));
    EXPECT_EQ(snooped[2], std::string(9000 - 4001 - (4001 - 13 - head.size()), 'x') + "\n");
}

TEST_F(Port_logging_test, line_feed_is_a_piece_of_its_own_when_it_does_not_fit) {
    set_logger();
    const std::string head = "the port[RD](3968): ";
    log(std::string(4001 - 13 - head.size(), 'x'));
    ASSERT_EQ(snooped.size(), 2U);
    EXPECT_EQ(snooped[0].size(), 4001U);
    EXPECT_EQ(snooped[1], "\n");
}

} // namespace
