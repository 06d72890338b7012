#include <platform/Cbuf.h>

#include <support/builders/Random.h>

#include <deque>
#include <gtest/gtest.h>
#include <vector>

namespace {

constexpr unsigned capacity = 7;

struct Small_ring : testing::Test {
    unsigned char storage[capacity] = {};
    Cbuf_templ<unsigned char> ring{storage, capacity};

    std::string content() const {
        std::string bytes(ring.size(), '\0');
        ring.peek(reinterpret_cast<unsigned char*>(bytes.data()), ring.size(), 0);
        return bytes;
    }
    unsigned append(const std::string& bytes) {
        return ring.append(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
    }
};

TEST_F(Small_ring, starts_empty) {
    EXPECT_TRUE(ring.empty());
    EXPECT_EQ(ring.size(), 0U);
    EXPECT_EQ(ring.free_space(), capacity);
    EXPECT_EQ(ring.head(), 0U);
    EXPECT_EQ(ring.tail(), 0U);
}

TEST_F(Small_ring, uses_every_slot_and_marks_full_by_all_ones) {
    EXPECT_EQ(append("abcdefgh"), capacity);
    EXPECT_TRUE(ring.full());
    EXPECT_EQ(ring.tail(), 0xFFFFFFFFU);
    EXPECT_EQ(ring.size(), capacity);
    EXPECT_EQ(content(), "abcdefg");
    EXPECT_FALSE(ring.push('x'));
}

TEST_F(Small_ring, consuming_from_full_leaves_the_tail_at_the_old_head) {
    append("abc");
    ring.consume(3);
    append("defghij");
    ASSERT_TRUE(ring.full());
    ring.consume(2);
    EXPECT_EQ(ring.head(), 5U);
    EXPECT_EQ(ring.tail(), 3U);
    EXPECT_EQ(content(), "fghij");
}

TEST_F(Small_ring, consuming_all_of_a_full_ring_empties_it) {
    append("abcdefg");
    ring.consume(capacity);
    EXPECT_TRUE(ring.empty());
    EXPECT_FALSE(ring.full());
}

TEST_F(Small_ring, consuming_more_than_is_buffered_consumes_all) {
    append("abc");
    ring.consume(1000);
    EXPECT_TRUE(ring.empty());
    EXPECT_EQ(ring.head(), 3U);
}

TEST_F(Small_ring, clearing_keeps_the_head_of_a_full_ring_and_the_tail_of_another) {
    append("abcdefg");
    ring.consume(2);
    append("hi");
    ring.clear();
    EXPECT_EQ(ring.head(), 2U);
    EXPECT_EQ(ring.tail(), 2U);
    append("jkl");
    ring.clear();
    EXPECT_EQ(ring.head(), 5U);
    EXPECT_TRUE(ring.empty());
}

TEST_F(Small_ring, peek_beyond_the_end_copies_nothing) {
    append("abc");
    unsigned char byte = 'x';
    EXPECT_EQ(ring.peek(&byte, 1, 3), 0U);
    EXPECT_EQ(ring.peek(&byte, 1, 0xFFFFFFFFU), 0U);
    EXPECT_EQ(byte, 'x');
}

TEST_F(Small_ring, reports_whether_the_used_part_reaches_the_end_of_the_storage) {
    append("abcdefg");
    EXPECT_FALSE(ring.wraps());
    ring.consume(4);
    EXPECT_TRUE(ring.wraps()); // the tail is at the start: nothing continues there yet
    append("h");
    EXPECT_TRUE(ring.wraps());
    EXPECT_EQ(ring.used_region().size, 3U);
    ring.consume(3);
    EXPECT_FALSE(ring.wraps());
    EXPECT_EQ(ring.used_region().size, 1U);
}

TEST_F(Small_ring, behaves_like_a_bounded_queue_over_random_operations) {
    Random random;
    std::deque<unsigned char> model;
    for (int step = 0; step < 20000; ++step) {
        const unsigned count = random.between(0, capacity + 2);
        switch (random.between(0, 4)) {
        case 0: {
            const std::string bytes = random.bytes(count);
            const unsigned appended = append(bytes);
            ASSERT_EQ(appended, std::min<std::size_t>(count, capacity - model.size()));
            model.insert(model.end(), bytes.begin(), bytes.begin() + appended);
            break;
        }
        case 1: {
            const auto region = ring.free_region();
            const unsigned filled = std::min(region.size, count);
            for (unsigned i = 0; i < filled; ++i) {
                region.begin[i] = random.byte();
                model.push_back(region.begin[i]);
            }
            ring.commit(filled);
            break;
        }
        case 2:
            ring.consume(count);
            model.erase(model.begin(),
                        model.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(count, model.size())));
            break;
        case 3: {
            const unsigned offset = random.between(0, capacity + 1);
            std::vector<unsigned char> copy(count);
            const unsigned copied = ring.peek(copy.data(), count, offset);
            const std::size_t expected =
                offset < model.size() ? std::min<std::size_t>(count, model.size() - offset) : 0;
            ASSERT_EQ(copied, expected);
            for (unsigned i = 0; i < copied; ++i)
                ASSERT_EQ(copy[i], model[offset + i]);
            break;
        }
        default:
            if (random.one_in(20)) {
                ring.clear();
                model.clear();
            }
        }
        ASSERT_EQ(ring.size(), model.size());
        ASSERT_EQ(ring.full(), model.size() == capacity);
        ASSERT_EQ(ring.empty(), model.empty());
        for (unsigned i = 0; i < model.size(); ++i)
            ASSERT_EQ(ring.at(i), model[i]);
    }
}

} // namespace
