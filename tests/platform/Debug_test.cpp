#include <platform/Debug.h>

#include <support/fakes/Captured_debug.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Enabled_category.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Debug::Print;

const unsigned char* bytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

// ---- Categories ----

TEST(Debug_categories, are_off_until_switched_on) {
    for (unsigned category = 0; category < Debug::category_count; ++category)
        EXPECT_FALSE(Print::enabled(category)) << category;
    {
        const Enabled_category on(136);
        EXPECT_TRUE(Print::enabled(136));
        EXPECT_FALSE(Print::enabled(135));
        EXPECT_FALSE(Print::enabled(137));
    }
    EXPECT_FALSE(Print::enabled(136));
}

TEST(Debug_categories, above_255_do_not_exist) {
    EXPECT_EQ(Debug::category_count, 256U);
    const Enabled_category last(255);
    EXPECT_TRUE(Print::enabled(255));
    const Enabled_category none(256);
    EXPECT_FALSE(Print::enabled(256));
    Print::enable(0xFFFFFFFFU, true);
    EXPECT_FALSE(Print::enabled(0xFFFFFFFFU));
    EXPECT_FALSE(Print::enabled(0));
}

TEST(Debug_categories, decide_what_print_prints) {
    const Captured_debug debug;
    Print::print(105, "off %d\n", 1);
    Print::print_ts(105, "off %d\n", 2);
    EXPECT_EQ(debug.text(), "");
    const Enabled_category on(105);
    Print::print(105, "on %d\n", 3);
    Print::print_ts(105, "on %d\n", 4);
    Print::print(106, "off %d\n", 5);
    EXPECT_EQ(debug.text_without_times(), "on 3\n<time> on 4\n");
}

/// Runs in a new process with this environment: prints the categories that are on.
[[noreturn]] void print_categories_and_exit() {
    for (unsigned category = 0; category < Debug::category_count; ++category)
        if (Print::enabled(category))
            dprintf(STDERR_FILENO, "<%u>", category);
    _exit(0);
}

void expect_categories(const char* list, const char* expected) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a new process, which reads its environment again
    setenv("GLUE_DEBUG", list, 1);
    EXPECT_EXIT(print_categories_and_exit(), testing::ExitedWithCode(0), expected) << list;
    unsetenv("GLUE_DEBUG");
}

TEST(Debug_categories, are_switched_on_by_a_list_in_the_environment) {
    expect_categories("105,136", "^<105><136>$");
}

TEST(Debug_categories, in_the_environment_may_have_any_separator_and_wrong_ones_are_skipped) {
    expect_categories(" 7; 0 x255,256 99999999999999999999999", "^<0><7><255>$");
}

TEST(Debug_categories, of_an_empty_list_are_off) {
    expect_categories("", "^$");
}

// ---- Printing ----

TEST(Debug_printing, formats) {
    const Captured_debug debug;
    Print::dprint("%s %d %c\n", "text", -5, 'x');
    EXPECT_EQ(debug.text(), "text -5 x\n");
}

TEST(Debug_printing, prints_long_texts_whole) {
    const Captured_debug debug;
    for (const std::size_t length : {511U, 512U, 513U, 5000U}) {
        const std::string text(length - 1, 'x');
        Print::dprint("%s\n", text.c_str());
    }
    EXPECT_EQ(debug.text(), std::string(510, 'x') + "\n" + std::string(511, 'x') + "\n" + std::string(512, 'x') + "\n" +
                                std::string(4999, 'x') + "\n");
}

TEST(Debug_printing, leaves_text_unchanged) {
    const Captured_debug debug;
    Print::printd("up to its end %d\n", -1);
    Print::printd("only some of it", 9);
    Print::printd("nothing", 0);
    Print::printd("\n", -1);
    EXPECT_EQ(debug.text(), "up to its end %d\nonly some\n");
}

TEST(Debug_printing, leaves_bytes_unchanged) {
    const Captured_debug debug;
    const unsigned char data[] = {0x00, 0xFF, '%', 's', '\n'};
    Print::printc(false, data, sizeof data);
    EXPECT_EQ(debug.text(), std::string("\x00\xFF%s\n", 5));
}

TEST(Debug_printing, makes_bytes_readable) {
    const Captured_debug debug;
    std::string all;
    std::string expected;
    for (int value = 0; value < 256; ++value) {
        all += static_cast<char>(value);
        char code[8];
        snprintf(code, sizeof code, value >= 0x20 && value <= 0x7E ? "%c" : "\\x%02X", value);
        expected += value == '\r'   ? "\\r"
                    : value == '\n' ? "\\n"
                    : value == '\t' ? "\\t"
                    : value == '\\' ? "\\\\"
                                    : code;
    }
    Print::printascii(bytes(all.data()), 256);
    Print::printascii(bytes("unseen"), 0);
    EXPECT_EQ(debug.text(), ""); // an escaped line feed ends no line
    Print::dprint("\n");
    EXPECT_EQ(debug.text(), expected + "\n");
    EXPECT_NE(expected.find("\\x00\\x01"), std::string::npos);
    EXPECT_NE(expected.find("}~\\x7F\\x80"), std::string::npos);
}

TEST(Debug_printing, stamps_lines_with_the_time_of_day_in_utc) {
    const Captured_debug debug;
    setenv("TZ", "Somewhere-05:30", 1);
    tzset();
    const std::time_t before = std::time(nullptr);
    Print::dprint_ts("%d\n", 5);
    Print::dprint_ts();
    Print::dprint("x\n");
    const std::time_t after = std::time(nullptr);
    unsetenv("TZ");
    tzset();

    const std::string text = debug.text();
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(
        text, parts, std::regex("(\\d\\d):(\\d\\d):(\\d\\d)\\.\\d{3} 5\n\\d\\d:\\d\\d:\\d\\d\\.\\d{3} x\n")));
    const long stamped = std::stol(parts[1]) * 3600 + std::stol(parts[2]) * 60 + std::stol(parts[3]);
    constexpr long day = 86400;
    // time() may be a tick later than the clock of the stamps.
    EXPECT_LE((stamped - before % day + day) % day, after - before + 1);
}

// ---- When a line is written ----

TEST(Debug_lines, are_written_whole_at_their_line_feed) {
    const Captured_debug debug;
    Print::dprint("one ");
    Print::printd("line", -1);
    EXPECT_EQ(debug.text(), "");
    Print::dprint("\nthe next");
    EXPECT_EQ(debug.text(), "one line\n");
    Print::dprint("\n");
    EXPECT_EQ(debug.text(), "one line\nthe next\n");
}

TEST(Debug_lines, printed_together_are_written_together_without_the_unfinished_last_one) {
    const Captured_debug debug;
    Print::dprint("one\ntwo\nthr");
    EXPECT_EQ(debug.text(), "one\ntwo\n");
    Print::dprint("ee\n");
    EXPECT_EQ(debug.text(), "one\ntwo\nthree\n");
}

TEST(Debug_lines, without_end_are_written_after_8192_characters) {
    const Captured_debug debug;
    const std::string text(8191, 'x');
    Print::printd(text.c_str(), -1);
    EXPECT_EQ(debug.text(), "");
    Print::printd("y", -1);
    EXPECT_EQ(debug.text(), text + "y");
}

TEST(Debug_lines, of_bytes_are_written_at_once_on_request) {
    const Captured_debug debug;
    Print::dprint("before ");
    Print::printc(false, bytes("later "), 6);
    EXPECT_EQ(debug.text(), "");
    Print::printc(true, bytes("now"), 3);
    EXPECT_EQ(debug.text(), "before later now");
}

TEST(Debug_lines, that_are_critical_are_written_at_once) {
    const Captured_debug debug;
    Print::critical("pressure %d", 9);
    EXPECT_EQ(debug.text(), "pressure 9");
}

TEST(Debug_lines, that_a_thread_left_unfinished_are_written_when_it_ends) {
    const Captured_debug debug;
    std::thread([&] {
        Print::dprint("unfinished");
        EXPECT_EQ(debug.text(), "");
    }).join();
    EXPECT_EQ(debug.text(), "unfinished");
}

TEST(Debug_lines, of_several_threads_are_never_torn_and_keep_their_order) {
    constexpr unsigned threads = 4;
    constexpr unsigned lines = 300;
    const Captured_debug debug;
    std::vector<std::thread> running;
    for (unsigned t = 0; t < threads; ++t)
        running.emplace_back([t] {
            for (unsigned i = 0; i < lines; ++i) {
                Print::dprint("thread %u ", t);
                Print::printascii(bytes("["), 1);
                Print::printd("]", 1);
                Print::dprint(" line %u\n", i);
            }
        });
    for (std::thread& thread : running)
        thread.join();
    std::istringstream text(debug.text());
    std::map<unsigned, unsigned> next;
    for (std::string line; std::getline(text, line);) {
        unsigned t = 0;
        unsigned i = 0;
        int length = 0;
        ASSERT_EQ(sscanf(line.c_str(), "thread %u [] line %u%n", &t, &i, &length), 2) << line;
        ASSERT_EQ(static_cast<std::size_t>(length), line.size()) << line;
        ASSERT_EQ(i, next[t]++) << line;
    }
    EXPECT_EQ(next, (std::map<unsigned, unsigned>{{0, lines}, {1, lines}, {2, lines}, {3, lines}}));
}

TEST(Debug_lines, of_a_backtrace_name_the_calling_functions) {
    const Captured_debug debug;
    Print::print_backtrace("trouble %d\n", 7);
    EXPECT_TRUE(std::regex_match(debug.text(), std::regex("trouble 7\n(    .*\n)+"))) << debug.text();
    EXPECT_NE(debug.text().find("platform_tests"), std::string::npos) << debug.text();
}

// ---- Sinks ----

TEST(Debug_sink, is_standard_error_unless_another_is_set) {
    const Captured_descriptor standard_error(STDERR_FILENO);
    Print::dprint("to standard error\n");
    {
        const Captured_debug debug;
        Print::dprint("to the sink\n");
        EXPECT_EQ(debug.text(), "to the sink\n");
    }
    Print::dprint("back again\n");
    EXPECT_EQ(standard_error.text(), "to standard error\nback again\n");
}

TEST(Debug_sink, that_prints_itself_is_not_called_again) {
    std::string text;
    Print::set_sink([&text](std::string_view line) {
        text += line;
        Print::dprint("from inside\n");
        Print::critical("from inside");
        Print::printc(true, bytes("x"), 1);
        Print::dprint("unfinished");
    });
    Print::dprint("one\n");
    Print::dprint("two\n");
    Print::set_sink({});
    EXPECT_EQ(text, "one\ntwo\n");
}

TEST(Debug_sink, does_not_change_errno_of_its_caller) {
    Print::set_sink([](std::string_view) { errno = EIO; });
    const Enabled_category on(1);
    const std::function<void()> operations[] = {
        [] { Print::dprint("a\n"); },
        [] { Print::dprint_ts("a\n"); },
        [] { Print::dprint_ts(); },
        [] { Print::print(1, "a\n"); },
        [] { Print::print_ts(1, "a\n"); },
        [] { Print::print(2, "a\n"); },
        [] { Print::print_ts(2, "a\n"); },
        [] { Print::printd("a\n", -1); },
        [] { Print::printc(true, bytes("a"), 1); },
        [] { Print::printascii(bytes("a\n"), 2); },
        [] { Print::critical("a"); },
        [] { Print::print_backtrace("a\n"); },
    };
    for (const auto& operation : operations) {
        errno = ENOTTY;
        operation();
        EXPECT_EQ(errno, ENOTTY) << "operation " << &operation - operations;
    }
    Print::dprint("\n");
    Print::set_sink({});
}

TEST(Debug_printing, formats_the_error_that_the_caller_left) {
    const Captured_debug debug;
    errno = ENOENT;
    Print::dprint("%m\n");
    EXPECT_EQ(debug.text(), "No such file or directory\n");
}

} // namespace
