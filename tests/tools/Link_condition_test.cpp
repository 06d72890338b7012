#include <monitor/view/Link_condition.h>

namespace {

using live_view::Link_condition;
using live_view::Link_state;

constexpr std::int64_t silence = Link_condition::silence_ms;
constexpr std::int64_t patience = Link_condition::patience_ms;
const Atime begin = Atime() + 1000000;

/// A link whose time the test sets.
class Watched_link {
  public:
    Watched_link& bytes(std::uint64_t count) {
        condition.bytes_received(count, now);
        return *this;
    }
    Watched_link& frame(std::uint64_t size = 50) {
        condition.bytes_received(size, now);
        condition.good_frame_received(now);
        return *this;
    }
    Watched_link& after(std::int64_t ms) {
        now = now + ms;
        return *this;
    }
    Link_state state() const { return condition.state(now); }

    Link_condition condition;
    Atime now = begin;
};

} // namespace

TEST(Link_condition, waits_for_the_first_byte_however_long_it_takes) {
    Watched_link link;
    EXPECT_EQ(link.state(), Link_state::waiting);
    EXPECT_EQ(link.after(3600000).state(), Link_state::waiting);
    EXPECT_EQ(link.condition.quiet_for(link.now), 0);
}

TEST(Link_condition, the_first_bytes_prove_nothing) {
    Watched_link link;
    EXPECT_EQ(link.bytes(1).state(), Link_state::looking);
    EXPECT_EQ(link.bytes(5000).after(patience - 1).state(), Link_state::looking);
}

TEST(Link_condition, a_good_frame_makes_it_good_at_once) {
    Watched_link link;
    EXPECT_EQ(link.frame().state(), Link_state::good);
    EXPECT_TRUE(link.condition.has_been_good());
}

TEST(Link_condition, bytes_without_a_frame_are_rubbish_after_a_while) {
    Watched_link link;
    link.bytes(Link_condition::first_proof - 1).after(patience - 1).bytes(1);
    EXPECT_EQ(link.state(), Link_state::looking);
    EXPECT_EQ(link.after(1).state(), Link_state::rubbish);
    EXPECT_FALSE(link.condition.has_been_good());
}

TEST(Link_condition, a_few_bytes_are_not_rubbish_yet) {
    Watched_link link;
    link.bytes(Link_condition::first_proof - 2).after(patience - 1).bytes(1).after(1);
    EXPECT_EQ(link.state(), Link_state::looking);
    EXPECT_EQ(link.bytes(1).state(), Link_state::rubbish);
}

TEST(Link_condition, a_frame_ends_rubbish) {
    Watched_link link;
    link.bytes(1000).after(patience - 1).bytes(1000).after(1);
    ASSERT_EQ(link.state(), Link_state::rubbish);
    EXPECT_EQ(link.frame().state(), Link_state::good);
}

TEST(Link_condition, a_good_link_may_wait_for_the_bytes_that_a_damaged_length_claims) {
    Watched_link link;
    link.frame().after(patience - 1).bytes(Link_condition::later_proof - 1);
    EXPECT_EQ(link.state(), Link_state::good);
    EXPECT_EQ(link.after(1).state(), Link_state::looking);
    EXPECT_EQ(link.after(1).bytes(1).state(), Link_state::rubbish);
}

TEST(Link_condition, good_frames_keep_it_good) {
    Watched_link link;
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(link.frame().after(patience - 1).state(), Link_state::good);
}

TEST(Link_condition, without_bytes_it_is_silent) {
    Watched_link link;
    link.frame().after(silence - 1);
    EXPECT_EQ(link.state(), Link_state::good);
    EXPECT_EQ(link.after(1).state(), Link_state::silent);
    EXPECT_EQ(link.condition.quiet_for(link.now), silence);
    EXPECT_TRUE(link.condition.has_been_good());
}

TEST(Link_condition, rubbish_can_become_silent) {
    Watched_link link;
    link.bytes(1000).after(patience - 1).bytes(1000).after(silence);
    EXPECT_EQ(link.state(), Link_state::silent);
    EXPECT_FALSE(link.condition.has_been_good());
}

TEST(Link_condition, after_a_silence_it_is_judged_again) {
    Watched_link link;
    link.frame().after(silence).bytes(1);
    EXPECT_EQ(link.state(), Link_state::looking);
    EXPECT_EQ(link.after(patience - 1).bytes(10000).state(), Link_state::looking);
    EXPECT_EQ(link.after(1).state(), Link_state::rubbish);
    EXPECT_EQ(link.frame().state(), Link_state::good);
}

TEST(Link_condition, its_end_is_final) {
    Watched_link link;
    link.frame().condition.link_ended();
    EXPECT_EQ(link.state(), Link_state::ended);
    EXPECT_EQ(link.after(silence).state(), Link_state::ended);
}

TEST(Link_condition, sentences_are_no_rubbish) {
    Watched_link link;
    const auto sentence = [&]() -> Watched_link& {
        link.bytes(60).condition.sentence_received(link.now);
        return link;
    };
    EXPECT_EQ(sentence().state(), Link_state::sentences);
    for (int i = 0; i < 100; ++i)
        sentence().after(patience / 10);
    EXPECT_EQ(link.state(), Link_state::sentences);
    EXPECT_TRUE(link.condition.has_been_good());
    EXPECT_EQ(link.frame().state(), Link_state::good);
    for (int i = 0; i < 15; ++i)
        sentence().after(patience / 10);
    EXPECT_EQ(sentence().state(), Link_state::sentences); // no more frames
    EXPECT_EQ(link.after(patience - 1).bytes(Link_condition::later_proof).state(), Link_state::sentences);
    EXPECT_EQ(link.after(1).state(), Link_state::rubbish);
    EXPECT_EQ(link.after(silence).state(), Link_state::silent);
}
