#include <platform/Util.h>

#include <support/builders/Random.h>
#include <support/builders/crc32_by_definition.h>

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr unsigned seed = 0x5CA1AB1E;

unsigned crc_of(unsigned crc, const std::string& bytes) {
    return Util::crc32(crc, bytes.data(), static_cast<int>(bytes.size()));
}

TEST(Util_crc32, returns_the_well_known_check_value) {
    EXPECT_EQ(crc_of(0, "123456789"), 0xCBF43926U);
}

TEST(Util_crc32, continues_from_any_value) {
    EXPECT_EQ(crc_of(seed, "abcde"), 0x0E894A8DU);
}

TEST(Util_crc32, of_no_bytes_is_unchanged) {
    EXPECT_EQ(Util::crc32(seed, "abc", 0), seed);
    EXPECT_EQ(Util::crc32(seed, nullptr, 0), seed);
    EXPECT_EQ(Util::crc32(seed, "abc", -1), seed);
}

TEST(Util_crc32, agrees_with_the_definition_for_any_cut_of_the_bytes) {
    Random random;
    for (int round = 0; round < 200; ++round) {
        const std::string bytes = random.bytes(random.between(1, 2000));
        const unsigned start = random.between(0, 0xFFFFFFFF);
        unsigned crc = start;
        for (std::size_t position = 0; position < bytes.size();) {
            const std::string piece = bytes.substr(position, random.between(0, 300));
            crc = crc_of(crc, piece);
            position += piece.size();
        }
        ASSERT_EQ(crc, crc32_by_definition(start, bytes));
        ASSERT_EQ(crc_of(start, bytes), crc);
    }
}

} // namespace
