#include <glue/vesk/GNSS_block_messages.h>

#include <support/builders/Frame_builder.h>

#include <gtest/gtest.h>

#include <cstring>

using namespace GNSS_messages;

namespace {

constexpr char filler = '\xA5';

// ---- Position blocks ----

Msg_PA::block_t numbered_block(int first) {
    Msg_PA::block_t block;
    for (double& value : block.position)
        value = -first++;
    for (float& value : block.values)
        value = static_cast<float>(first++) + 0.5F;
    block.type = static_cast<std::uint8_t>(first++ + 200);
    for (float& value : block.extra)
        value = -static_cast<float>(first++);
    return block;
}

/// The bytes of `numbered_block`, built without it.
std::string numbered_block_bytes(int first) {
    const auto nth = [first](int n) { return static_cast<float>(first + n); };
    return le<double>(-first) + le<double>(-first - 1) + le<double>(-first - 2) + le(nth(3) + 0.5F) +
           le(nth(4) + 0.5F) + le(nth(5) + 0.5F) + le(nth(6) + 0.5F) + le(nth(7) + 0.5F) +
           static_cast<char>(first + 8 + 200) + le(-nth(9)) + le(-nth(10));
}

void expect_equal(const Msg_PA::block_t& block, const Msg_PA::block_t& expected) {
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(block.position[i], expected.position[i]) << i;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(block.values[i], expected.values[i]) << i;
    EXPECT_EQ(block.type, expected.type);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(block.extra[i], expected.extra[i]) << i;
}

std::string pa_frame(int count) {
    return build_frame("PA", static_cast<char>(count) + numbered_block_bytes(1) + numbered_block_bytes(20));
}

TEST(Msg_PA, blocks_take_53_bytes_from_offsets_6_and_59) {
    ASSERT_EQ(numbered_block_bytes(1).size(), 53U);
    Frame frame(pa_frame(2));
    Msg_PA::block_t block;
    ASSERT_TRUE(frame.as<Msg_PA>().get_main(block));
    expect_equal(block, numbered_block(1));
    ASSERT_TRUE(frame.as<Msg_PA>().get_fallback(block));
    expect_equal(block, numbered_block(20));
}

TEST(Msg_PA, one_block_is_the_main_one) {
    Frame frame(pa_frame(1));
    Msg_PA::block_t block = numbered_block(50);
    EXPECT_FALSE(frame.as<Msg_PA>().get_fallback(block));
    expect_equal(block, numbered_block(50));
    ASSERT_TRUE(frame.as<Msg_PA>().get_main(block));
    expect_equal(block, numbered_block(1));
}

TEST(Msg_PA, without_blocks_nothing_is_read_or_written) {
    Frame frame(pa_frame(0));
    Msg_PA::block_t block = numbered_block(50);
    auto message = frame.as<Msg_PA>();
    EXPECT_FALSE(message.get_main(block));
    EXPECT_FALSE(message.get_fallback(block));
    expect_equal(block, numbered_block(50));
    EXPECT_FALSE(message.set_main(block));
    EXPECT_FALSE(message.set_fallback(block));
    EXPECT_EQ(frame.bytes(), pa_frame(0));
}

TEST(Msg_PA, setting_blocks_writes_their_bytes_and_nothing_else) {
    Frame frame("PA06C" + std::string("\0", 1) + std::string(120, filler));
    auto message = frame.as<Msg_PA>();
    ASSERT_TRUE(message.set_num_blocks(2));
    EXPECT_EQ(message.get_num_blocks(), 2);
    EXPECT_TRUE(message.set_fallback(numbered_block(20)));
    EXPECT_EQ(frame.bytes(), "PA06C\2" + std::string(53, filler) + numbered_block_bytes(20) + std::string(14, filler));
    EXPECT_TRUE(message.set_main(numbered_block(1)));
    EXPECT_EQ(frame.bytes(), "PA06C\2" + numbered_block_bytes(1) + numbered_block_bytes(20) + std::string(14, filler));
}

TEST(Msg_PA, setting_a_block_that_does_not_fit_returns_false) {
    Frame frame("PA06C\1" + std::string(52, filler));
    EXPECT_FALSE(frame.as<Msg_PA>().set_main(numbered_block(1)));
    EXPECT_EQ(frame.bytes(), "PA06C\1" + numbered_block_bytes(1).substr(0, 49) + std::string(3, filler));
}

TEST(Msg_PA, cut_frames_read_zeros) {
    for (std::size_t size = 0; size <= 120; ++size) {
        Frame frame(pa_frame(2).substr(0, size));
        Msg_PA::block_t block = numbered_block(50);
        EXPECT_EQ(frame.as<Msg_PA>().get_fallback(block), size > 5);
        if (size <= 5)
            continue;
        EXPECT_EQ(block.position[0], size >= 67 ? -20.0 : 0.0);
        EXPECT_EQ(block.extra[1], size >= 112 ? -30.0F : 0.0F);
    }
}

TEST(Msg_PA, block_offsets) {
    Frame two(pa_frame(2)), one(pa_frame(1)), none(pa_frame(0));
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 1), 6);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 2), 59);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 3), -1);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), 0), -1);
    EXPECT_EQ(get_PA_block_offset(two.as<Msg_PA>(), -1), -1);
    EXPECT_EQ(get_PA_block_offset(one.as<Msg_PA>(), 1), 6);
    EXPECT_EQ(get_PA_block_offset(one.as<Msg_PA>(), 2), -1);
    EXPECT_EQ(get_PA_block_offset(none.as<Msg_PA>(), 1), -1);
}

TEST(Msg_PA_death, more_than_two_blocks_end_the_process) {
    const char* const last_words = "glue/vesk/GNSS_messages.*Assertion `num_blocks <= 2' failed";
    for (const int count : {3, 255}) {
        Frame frame(pa_frame(count));
        auto message = frame.as<Msg_PA>();
        Msg_PA::block_t block = {};
        EXPECT_DEATH(message.get_main(block), last_words);
        EXPECT_DEATH(message.set_fallback(block), last_words);
        EXPECT_DEATH(get_PA_block_offset(message, 9), last_words);
    }
}

// ---- Chains of blocks ----

std::string chain_block(int kind, const std::string& content) {
    return static_cast<char>(kind) + (static_cast<char>(content.size()) + content);
}

std::string s1_content(unsigned first) {
    const auto nth = [first](unsigned n) { return static_cast<std::uint16_t>(first + n); };
    return le(std::uint32_t(0x80000000) + first) + le(nth(1)) + le(nth(2)) + le(nth(3)) + le(nth(4));
}

void expect_s1(const Msg_S1::block_t& block, unsigned first) {
    EXPECT_EQ(block.number, 0x80000000 + first);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(block.values[i], first + 1 + i) << i;
}

Frame s1_frame(int count, const std::string& chain) {
    return Frame(build_frame("S1", static_cast<char>(count) + chain));
}

TEST(Msg_S1, each_kind_is_found_at_every_position) {
    Frame frame = s1_frame(3, chain_block(3, s1_content(0xFF00) + "more") + chain_block(1, s1_content(10)) +
                                  chain_block(2, s1_content(20)));
    const auto message = frame.as<Msg_S1>();
    Msg_S1::block_t block;
    ASSERT_TRUE(message.get_hp(block));
    expect_s1(block, 10);
    ASSERT_TRUE(message.get_ts(block));
    expect_s1(block, 20);
    ASSERT_TRUE(message.get_vbs(block));
    expect_s1(block, 0xFF00);
    EXPECT_EQ(get_S1S2_block_offset(message, 3), 6);
    EXPECT_EQ(get_S1S2_block_offset(message, 1), 6 + 2 + 16);
    EXPECT_EQ(get_S1S2_block_offset(message, 2), 6 + 2 + 16 + 2 + 12);
    EXPECT_EQ(get_S1S2_block_offset(message, 4), -1);
}

TEST(Msg_S1, a_missing_kind_is_not_found_after_the_last_block) {
    Frame frame =
        s1_frame(2, chain_block(2, s1_content(20)) + chain_block(3, s1_content(30)) + chain_block(1, s1_content(10)));
    Msg_S1::block_t block = {7, {8, 9, 10, 11}};
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
    EXPECT_EQ(block.number, 7U);
    EXPECT_EQ(block.values[3], 11);
}

TEST(Msg_S1, the_first_block_of_a_kind_is_read) {
    Frame frame = s1_frame(2, chain_block(2, s1_content(20)) + chain_block(2, s1_content(30)));
    Msg_S1::block_t block;
    ASSERT_TRUE(frame.as<Msg_S1>().get_ts(block));
    expect_s1(block, 20);
}

TEST(Msg_S1, without_blocks_there_is_none) {
    Frame frame = s1_frame(0, chain_block(1, s1_content(10)));
    Msg_S1::block_t block;
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
}

TEST(Msg_S1, empty_blocks_are_skipped) {
    Frame frame = s1_frame(3, chain_block(9, "") + chain_block(0, "") + chain_block(3, s1_content(30)));
    Msg_S1::block_t block;
    ASSERT_TRUE(frame.as<Msg_S1>().get_vbs(block));
    expect_s1(block, 30);
}

TEST(Msg_S1, a_chain_that_leaves_the_frame_ends_there) {
    Frame frame("S1020\3\x09\xFF");
    Msg_S1::block_t block;
    EXPECT_FALSE(frame.as<Msg_S1>().get_hp(block));
    EXPECT_FALSE(frame.as<Msg_S1>().get_vbs(block));
}

TEST(Msg_S1, cut_frames_read_zeros) {
    const std::string whole = "S1010\1" + chain_block(1, s1_content(10));
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        Frame frame(whole.substr(0, size));
        Msg_S1::block_t block = {};
        EXPECT_EQ(frame.as<Msg_S1>().get_hp(block), size > 6);
        EXPECT_EQ(block.number, size >= 12 ? 0x8000000AU : 0U);
        EXPECT_EQ(block.values[0], size >= 14 ? 11U : 0U);
        EXPECT_EQ(block.values[3], size >= 20 ? 14U : 0U);
    }
}

std::string counted(const std::string& text) {
    return static_cast<char>(text.size()) + text;
}

std::string s2_content(const std::string& a, const std::string& b) {
    return le(std::uint16_t(0xFEDC)) + le(std::uint32_t(0x89ABCDEF)) + counted(a) + counted(b);
}

Msg_S2::block_t s2_block_of(const std::string& bytes) {
    Frame frame(bytes);
    Msg_S2::block_t block;
    std::memset(&block, filler, sizeof block);
    EXPECT_TRUE(frame.as<Msg_S2>().get_hp(block));
    return block;
}

std::string s2_frame(const std::string& a, const std::string& b) {
    return build_frame("S2", '\1' + chain_block(1, s2_content(a, b)));
}

TEST(Msg_S2, reads_numbers_and_texts) {
    const Msg_S2::block_t block = s2_block_of(s2_frame("alpha", "be"));
    EXPECT_EQ(block.code, 0xFEDC);
    EXPECT_EQ(block.number, 0x89ABCDEF);
    EXPECT_EQ(block.length_a, 5);
    EXPECT_STREQ(block.text_a, "alpha");
    EXPECT_EQ(block.length_b, 2);
    EXPECT_STREQ(block.text_b, "be");
}

TEST(Msg_S2, texts_keep_31_characters) {
    const std::string forty = "abcdefghijklmnopqrstuvwxyz0123456789ABCD";
    const Msg_S2::block_t block = s2_block_of(s2_frame(forty, forty.substr(8)));
    EXPECT_EQ(block.length_a, 40);
    EXPECT_STREQ(block.text_a, "abcdefghijklmnopqrstuvwxyz01234");
    EXPECT_EQ(block.length_b, 32); // found at block offset 49
    EXPECT_STREQ(block.text_b, "ijklmnopqrstuvwxyz0123456789ABC");

    const Msg_S2::block_t fitting = s2_block_of(s2_frame(forty.substr(0, 31), ""));
    EXPECT_EQ(fitting.length_a, 31);
    EXPECT_STREQ(fitting.text_a, "abcdefghijklmnopqrstuvwxyz01234");
    EXPECT_EQ(fitting.length_b, 0);
    EXPECT_STREQ(fitting.text_b, "");
}

TEST(Msg_S2, texts_keep_NULs_and_are_0_after_their_end) {
    const Msg_S2::block_t block = s2_block_of(s2_frame(std::string("a\0c", 3), ""));
    EXPECT_EQ(block.length_a, 3);
    EXPECT_EQ(std::string(block.text_a, 32), std::string("a\0c", 3) + std::string(29, '\0'));
}

TEST(Msg_S2, the_longest_first_text_is_skipped) {
    const std::string longest(255, 'x');
    Frame frame("S2200\1\1\xFF" + s2_content(longest, "tail") + "\n"); // the block's own length cannot say as much
    Msg_S2::block_t block;
    ASSERT_TRUE(frame.as<Msg_S2>().get_hp(block));
    EXPECT_EQ(block.length_a, 255);
    EXPECT_STREQ(block.text_a, std::string(31, 'x').c_str());
    EXPECT_EQ(block.length_b, 4);
    EXPECT_STREQ(block.text_b, "tail");
}

TEST(Msg_S2, cut_frames_read_zeros) {
    const std::string whole = "S2020\1" + chain_block(1, s2_content("alpha", "be"));
    for (std::size_t size = 7; size <= whole.size(); ++size) {
        const Msg_S2::block_t block = s2_block_of(whole.substr(0, size));
        EXPECT_EQ(block.code, size >= 10 ? 0xFEDC : 0);
        EXPECT_EQ(block.number, size >= 14 ? 0x89ABCDEF : 0U);
        EXPECT_EQ(block.length_a, size >= 15 ? 5 : 0);
        EXPECT_EQ(std::string(block.text_a), size > 15 ? std::string("alpha").substr(0, size - 15) : "");
        EXPECT_EQ(block.length_b, size >= 21 ? 2 : 0);
        EXPECT_EQ(std::string(block.text_b), size > 21 ? std::string("be").substr(0, size - 21) : "");
    }
    Frame headless(whole.substr(0, 6));
    Msg_S2::block_t block;
    EXPECT_FALSE(headless.as<Msg_S2>().get_hp(block));
}

TEST(Msg_S2, each_kind_has_its_own_reader) {
    Frame frame(build_frame("S2", '\3' + chain_block(1, s2_content("hp", "")) + chain_block(2, s2_content("ts", "")) +
                                      chain_block(3, s2_content("vbs", ""))));
    const auto message = frame.as<Msg_S2>();
    Msg_S2::block_t block;
    ASSERT_TRUE(message.get_hp(block));
    EXPECT_STREQ(block.text_a, "hp");
    ASSERT_TRUE(message.get_ts(block));
    EXPECT_STREQ(block.text_a, "ts");
    ASSERT_TRUE(message.get_vbs(block));
    EXPECT_STREQ(block.text_a, "vbs");
    EXPECT_EQ(get_S1S2_block_offset(message, 2), 6 + 2 + 10);
}

TEST(Msg_S1_death, more_than_three_blocks_end_the_process) {
    const char* const last_words = "glue/vesk/GNSS_messages.*Assertion `num_blocks <= 3' failed";
    for (const int count : {4, 255}) {
        Frame frame = s1_frame(count, chain_block(1, s1_content(10)));
        const auto first = frame.as<Msg_S1>();
        Msg_S1::block_t block;
        EXPECT_DEATH(first.get_hp(block), last_words);
        EXPECT_DEATH(first.get_ts(block), last_words);
        EXPECT_DEATH(get_S1S2_block_offset(first, 1), last_words);
        Msg_S2::block_t block_with_texts;
        EXPECT_DEATH(frame.as<Msg_S2>().get_vbs(block_with_texts), last_words);
    }
}

} // namespace
