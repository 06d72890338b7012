#include <settings/Running_checksum.h>

#include <support/builders/Random.h>
#include <support/builders/crc32_by_definition.h>

#include <gtest/gtest.h>

namespace {

void add(Running_checksum& checksum, const std::string& bytes) {
    checksum.add(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
}

TEST(Running_checksum, of_the_whole_is_the_usual_one) {
    Running_checksum checksum;
    const Running_checksum::Mark begin = checksum.mark();
    add(checksum, "12345");
    add(checksum, "6789");
    EXPECT_EQ(checksum.since(begin), 0xCBF43926U);
    EXPECT_EQ(checksum.position(), 9U);
}

TEST(Running_checksum, of_nothing_is_0) {
    Running_checksum checksum;
    EXPECT_EQ(checksum.since(checksum.mark()), 0U);
    add(checksum, "abc");
    EXPECT_EQ(checksum.since(checksum.mark()), 0U);
}

TEST(Running_checksum, of_every_piece_equals_that_of_the_piece_alone) {
    Random random;
    const std::string bytes = random.bytes(60);
    for (std::size_t begin = 0; begin <= bytes.size(); ++begin) {
        for (std::size_t end = begin; end <= bytes.size(); ++end) {
            Running_checksum checksum;
            add(checksum, bytes.substr(0, begin));
            const Running_checksum::Mark mark = checksum.mark();
            add(checksum, bytes.substr(begin, end - begin));
            ASSERT_EQ(checksum.since(mark), crc32_by_definition(0, bytes.substr(begin, end - begin)));
        }
    }
}

TEST(Running_checksum, of_a_long_piece_too) {
    Random random;
    const std::string front = random.bytes(3);
    const std::string bytes = repeated(random.bytes(1000), 1234567);
    Running_checksum checksum;
    add(checksum, front);
    const Running_checksum::Mark mark = checksum.mark();
    add(checksum, bytes);
    EXPECT_EQ(checksum.since(mark), crc32_by_definition(0, bytes));
}

} // namespace
