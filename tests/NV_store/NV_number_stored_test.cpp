#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <support/builders/Number_forms.h>
#include <support/builders/Random.h>
#include <support/fakes/Captured_debug.h>
#include <support/settings/Settings_bytes.h>

#include <gtest/gtest.h>

namespace {

using namespace NV_store;
using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;
using number_forms::edge_values;
using number_forms::Form;
using number_forms::header;
using number_forms::other_value;
using number_forms::same_bits;
using number_forms::some_value;
using number_forms::stored;

constexpr unsigned char single_value = 9; // a kind in headers

template <typename Number>
struct NV_number_stored : testing::Test {
    using Held = typename Form<Number>::Value;

    NV_number_stored() {
        root._set_root(&root);
        QObject::connect(&number, qOverload<>(&NV_item::value_changed), [this] { ++signals_seen; });
    }

    static constexpr unsigned char code = Form<Number>::code;
    static constexpr int width = Form<Number>::width;

    NV_root root{nullptr, 0, "root"};
    Number number{&root, 0x1234, some_value<Held>, "number"};
    int signals_seen = 0;
};

TYPED_TEST_SUITE(NV_number_stored, number_forms::All_forms, number_forms::Names);

TYPED_TEST(NV_number_stored, is_a_header_and_the_value_lowest_byte_first) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        Settings_bytes it(NV_iterator::writing_all);
        this->number._set(value);
        EXPECT_TRUE(this->number.serialise(&it));
        EXPECT_EQ(it.bytes(), header(this->code, single_value, 0x1234) + stored(value));
    }
    EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
}

TYPED_TEST(NV_number_stored, is_no_longer_dirty_when_saved) {
    using Value = typename TestFixture::Held;
    Settings_bytes it(NV_iterator::appending_changed);
    this->number.set(other_value<Value>);
    EXPECT_TRUE(this->number.serialise(&it));
    EXPECT_EQ(this->number.get_flags(), 0);
    const int once = it.length();
    EXPECT_TRUE(this->number.serialise(&it));
    EXPECT_EQ(it.length(), once);
}

TYPED_TEST(NV_number_stored, stays_dirty_when_the_iterator_is_full) {
    using Value = typename TestFixture::Held;
    this->number.set(other_value<Value>);
    const unsigned char flags = this->number.get_flags();
    for (int capacity = 0; capacity < 4 + this->width; ++capacity) {
        Settings_bytes it(NV_iterator::writing_all, capacity);
        EXPECT_FALSE(this->number.serialise(&it)) << capacity;
        EXPECT_EQ(this->number.get_flags(), flags) << capacity;
    }
    Settings_bytes it(NV_iterator::writing_all, 4 + this->width);
    EXPECT_TRUE(this->number.serialise(&it));
}

TYPED_TEST(NV_number_stored, is_included_as_the_mode_requires) {
    Settings_bytes it(NV_iterator::writing_set);
    for (const auto mode : {NV_iterator::writing_set, NV_iterator::appending_written, NV_iterator::appending_changed}) {
        it.set_mode(mode);
        EXPECT_TRUE(this->number.serialise(&it)) << mode;
    }
    for (const auto mode : {NV_iterator::closed, NV_iterator::reading}) {
        it.set_mode(mode);
        EXPECT_FALSE(this->number.serialise(&it)) << mode;
    }
    EXPECT_EQ(it.length(), 0);
    EXPECT_FALSE(this->number.serialise(nullptr));
}

TYPED_TEST(NV_number_stored, is_loaded_without_notifications) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        Settings_bytes it(header(this->code, single_value, 0x1234) + stored(value) + "rest");
        EXPECT_TRUE(this->number.deserialise(&it));
        EXPECT_TRUE(same_bits(this->number.get(), value)) << +value;
        EXPECT_EQ(it.left(), 4);
    }
    EXPECT_EQ(this->number.get_flags(), 0);
    EXPECT_EQ(this->root.get_flags(), NV_item::pristine);
    EXPECT_EQ(this->signals_seen, 0);
    EXPECT_EQ(this->number.get_default(), some_value<Value>);
}

TYPED_TEST(NV_number_stored, stays_dirty_when_loaded) {
    using Value = typename TestFixture::Held;
    this->number.set(other_value<Value>);
    Settings_bytes it(header(this->code, single_value, 0x1234) + stored(some_value<Value>));
    EXPECT_TRUE(this->number.deserialise(&it));
    EXPECT_EQ(this->number.get_flags(), NV_item::dirty_change | NV_item::dirty_write);
}

TYPED_TEST(NV_number_stored, is_left_unchanged_by_a_record_that_is_cut_short) {
    using Value = typename TestFixture::Held;
    const Captured_debug printed;
    const std::string record = header(this->code, single_value, 0x1234) + stored(other_value<Value>);
    for (std::size_t length = 0; length < record.size(); ++length) {
        Settings_bytes it(record.substr(0, length));
        EXPECT_FALSE(this->number.deserialise(&it)) << length;
        EXPECT_EQ(this->number.get(), some_value<Value>);
        EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
    }
}

TYPED_TEST(NV_number_stored, reports_a_header_that_is_not_its_own) {
    using Value = typename TestFixture::Held;
    const std::string own = std::to_string(this->code);
    const Captured_debug printed;
    Settings_bytes other_id(header(this->code, single_value, 0x1235) + stored(other_value<Value>));
    EXPECT_FALSE(this->number.deserialise(&other_id));
    EXPECT_EQ(printed.text(), "Number fail number 4661 != 4660 || " + own + " != " + own + " 424\n");
    EXPECT_EQ(other_id.left(), this->width);

    Settings_bytes other_kind(header(this->code, 8, 0x1234) + stored(other_value<Value>));
    EXPECT_FALSE(this->number.deserialise(&other_kind));
    EXPECT_EQ(printed.text().substr(printed.text().find('\n') + 1), "Number fail 444\n");
    EXPECT_EQ(this->number.get(), some_value<Value>);
    EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
}

TYPED_TEST(NV_number_stored, is_not_interchangeable_with_the_form_of_another_code) {
    using Value = typename TestFixture::Held;
    const unsigned char scalar = Form<TypeParam>::scalar_code;
    const int stranger = this->code == 17 ? scalar : 17;
    const Captured_debug printed;
    Settings_bytes it(header(static_cast<unsigned char>(stranger), single_value, 0x1234) + stored(other_value<Value>));
    EXPECT_FALSE(this->number.deserialise(&it));
    EXPECT_EQ(printed.text(), "Number fail number 4660 != 4660 || " + std::to_string(stranger) +
                                  " != " + std::to_string(this->code) + " 424\n");
    EXPECT_EQ(this->number.get(), some_value<Value>);

    Settings_bytes array(header(static_cast<unsigned char>(this->code | 1 << 6), single_value, 0x1234) +
                         stored(other_value<Value>));
    EXPECT_FALSE(this->number.deserialise(&array));
}

// ---- Values for a peer ----

TYPED_TEST(NV_number_stored, is_sent_as_its_value_only) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        unsigned char bytes[8];
        Send_buffer buffer(bytes, sizeof bytes);
        unsigned short counter = 0;
        this->number._set(value);
        EXPECT_FALSE(this->number.serialise(buffer, counter).fail());
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(buffer.size())),
                  stored(value));
        EXPECT_EQ(counter, 0xFFFF);

        Value received{};
        Receive_buffer there(bytes, buffer.size());
        EXPECT_TRUE(TypeParam::raw_deserialise(there, received));
        EXPECT_TRUE(same_bits(received, value)) << +value;
        buffer.clear();
        EXPECT_TRUE(TypeParam::raw_serialise(buffer, value));
        EXPECT_EQ(buffer.size(), this->width);
    }
    EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
}

TYPED_TEST(NV_number_stored, sending_fails_at_the_number_that_does_not_fit) {
    unsigned char bytes[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    Send_buffer buffer(bytes, this->width - 1);
    unsigned short counter = 0;
    const Data_item::Serial_ret result = this->number.serialise(buffer, counter);
    EXPECT_TRUE(result.fail());
    EXPECT_EQ(result.failed_item(), &this->number);
    EXPECT_EQ(result.next_item(), nullptr);
    EXPECT_EQ(buffer.size(), 0);
    for (const unsigned char byte : bytes)
        EXPECT_EQ(byte, 0xEE);
}

TYPED_TEST(NV_number_stored, notifies_of_a_received_value) {
    using Value = typename TestFixture::Held;
    const std::string value = stored(other_value<Value>);
    for (const int expected_signals : {1, 1}) { // the second time the value is equal
        Receive_buffer buffer(reinterpret_cast<const unsigned char*>(value.data()), this->width);
        unsigned short counter = 0;
        EXPECT_FALSE(this->number.deserialise(buffer, counter).fail());
        EXPECT_EQ(buffer.left(), 0);
        EXPECT_EQ(counter, 0xFFFF);
        EXPECT_EQ(this->number._get(), other_value<Value>);
        EXPECT_EQ(this->signals_seen, expected_signals);
    }
    EXPECT_EQ(this->number.get_flags(), NV_item::dirty_change | NV_item::dirty_write);
    EXPECT_EQ(this->root.get_flags(), NV_item::dirty_change | NV_item::dirty_write);
}

TYPED_TEST(NV_number_stored, keeps_its_value_when_bytes_are_missing) {
    using Value = typename TestFixture::Held;
    const std::string value = stored(other_value<Value>);
    for (int length = 0; length < this->width; ++length) {
        Receive_buffer buffer(reinterpret_cast<const unsigned char*>(value.data()), length);
        unsigned short counter = 0;
        const Data_item::Serial_ret result = this->number.deserialise(buffer, counter);
        EXPECT_EQ(result.failed_item(), &this->number);
        EXPECT_EQ(buffer.left(), length);
    }
    EXPECT_EQ(this->number.get(), some_value<Value>);
    EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
}

TYPED_TEST(NV_number_stored, is_skipped_while_the_counter_is_positive) {
    using Value = typename TestFixture::Held;
    unsigned char bytes[8] = {1};
    Send_buffer sent(bytes, 0);
    Receive_buffer received(bytes, this->width);
    for (unsigned short counter = 3; counter > 0;)
        EXPECT_FALSE(this->number.serialise(sent, counter).fail()); // a full buffer, but nothing to send
    for (unsigned short counter = 3; counter > 0;)
        EXPECT_FALSE(this->number.deserialise(received, counter).fail());
    EXPECT_EQ(received.left(), this->width);
    EXPECT_EQ(this->number.get(), some_value<Value>);
}

// ---- Records without a node ----

template <typename Number>
struct NV_unknown_number : testing::Test {
    using Held = typename Form<Number>::Value;

    static std::string record(int dimension, const std::string& content) {
        return header(static_cast<unsigned char>(Form<Number>::code | dimension << 6), single_value, 77) + content;
    }
    static std::string values(int count) { return std::string(static_cast<std::size_t>(count * width), '\x41'); }

    static constexpr int width = Form<Number>::width;
    static constexpr bool has_arrays = Form<Number>::code <= 11;
};

TYPED_TEST_SUITE(NV_unknown_number, number_forms::Scalar_forms, number_forms::Names);

TYPED_TEST(NV_unknown_number, is_skipped) {
    Settings_bytes direct(this->record(0, this->values(1) + "rest"));
    EXPECT_TRUE(TypeParam::deserialise_unknown(&direct));
    EXPECT_EQ(direct.left(), 4);
    Settings_bytes by_type(this->record(0, this->values(1) + "rest"));
    EXPECT_TRUE(NV_item::deserialise_unknown_handoff(&by_type));
    EXPECT_EQ(by_type.left(), 4);
}

TYPED_TEST(NV_unknown_number, is_skipped_as_array_and_matrix) {
    const struct {
        int dimension;
        std::string size;
        int count;
    } cases[] = {{1, std::string("\x03", 1), 3},        {1, std::string("\x00", 1), 0},
                 {1, std::string("\xFF", 1), 255},      {2, std::string("\x02\x05", 2), 10},
                 {2, std::string("\x00\x05", 2), 0},    {2, std::string("\x05\x00", 2), 0},
                 {2, std::string("\xFF\xFF", 2), 65025}};
    for (const auto& one : cases) {
        const std::string stored_array = this->record(one.dimension, one.size + this->values(one.count));
        Settings_bytes direct(stored_array + "rest");
        EXPECT_TRUE(
            TypeParam::deserialise_unknown_array(&direct, static_cast<DTS::Defs::Storage_class>(one.dimension)));
        EXPECT_EQ(direct.left(), 4);
        Settings_bytes by_type(stored_array + "rest");
        EXPECT_EQ(NV_item::deserialise_unknown_handoff(&by_type), this->has_arrays);
        EXPECT_EQ(by_type.left() == 4, this->has_arrays);
        Settings_bytes cut(stored_array.substr(0, stored_array.size() - 1));
        EXPECT_FALSE(NV_item::deserialise_unknown_handoff(&cut));
    }
}

TYPED_TEST(NV_unknown_number, is_not_skipped_when_it_is_damaged) {
    const std::string good = this->record(0, this->values(1));
    for (std::size_t length = 0; length < good.size(); ++length) {
        Settings_bytes direct(good.substr(0, length));
        EXPECT_FALSE(TypeParam::deserialise_unknown(&direct)) << length;
        Settings_bytes by_type(good.substr(0, length));
        EXPECT_FALSE(NV_item::deserialise_unknown_handoff(&by_type)) << length;
    }
    constexpr unsigned char other_kinds[] = {0, 1, 2, 8, 10, 12};
    for (const unsigned char kind : other_kinds) {
        const std::string other = header(Form<TypeParam>::code, kind, 77) + this->values(3);
        Settings_bytes single(other);
        EXPECT_FALSE(TypeParam::deserialise_unknown(&single)) << +kind;
        Settings_bytes array(other);
        EXPECT_FALSE(TypeParam::deserialise_unknown_array(&array, DTS::Defs::array)) << +kind;
    }
    Settings_bytes four_dimensions(this->record(3, std::string("\1\1\1", 3) + this->values(1)));
    EXPECT_FALSE(NV_item::deserialise_unknown_handoff(&four_dimensions));
    Settings_bytes single(this->record(0, "\1" + this->values(1)));
    EXPECT_FALSE(TypeParam::deserialise_unknown_array(&single, DTS::Defs::single));
}

TEST(NV_unknown_number, of_code_17_or_of_an_unknown_code_is_not_skipped) {
    for (int type = 0; type < 64; ++type)
        for (int dimension = 0; dimension < 4; ++dimension) {
            const bool is_container = dimension == 0 && (type == 0 || type == 1 || type == 13);
            const bool is_small_number = type >= 2 && type <= 11 && dimension <= 2;
            const bool is_large_number = (type == 15 || type == 16) && dimension == 0;
            if (is_container || is_small_number || is_large_number)
                continue;
            Settings_bytes it(header(static_cast<unsigned char>(type | dimension << 6), single_value, 77) +
                              std::string(64, '\0'));
            EXPECT_FALSE(NV_item::deserialise_unknown_handoff(&it)) << type << ", " << dimension;
        }
}

// A bool has more bit patterns than values.

TEST(NV_number_stored_bool, is_true_for_every_byte_except_zero) {
    NV_number<bool, 2> number(nullptr, 1, false, "number");
    for (int byte = 0; byte <= 255; ++byte) {
        const bool expected = byte != 0;
        const char value = static_cast<char>(byte);
        Settings_bytes it(header(2, single_value, 1) + value);
        EXPECT_TRUE(number.deserialise(&it));
        EXPECT_EQ(number == true, expected) << byte;
        EXPECT_TRUE(same_bits(number.get(), expected)) << byte;

        bool received = !expected;
        Receive_buffer buffer(reinterpret_cast<const unsigned char*>(&value), 1);
        EXPECT_TRUE((NV_number<bool, 2>::raw_deserialise(buffer, received)));
        EXPECT_TRUE(same_bits(received, expected)) << byte;
    }
}

// ---- Random bits ----

template <typename Number>
struct NV_random_bits : testing::Test {};
using Floating_forms = testing::Types<NV_number<float, 10>, NV_number<double, 11>>;
TYPED_TEST_SUITE(NV_random_bits, Floating_forms, number_forms::Names);

TYPED_TEST(NV_random_bits, are_kept_by_record_peer_and_text) {
    using Value = typename Form<TypeParam>::Value;
    Random random;
    TypeParam number(nullptr, 1, Value(0), "number");
    TypeParam loaded(nullptr, 1, Value(0), "number");
    for (int i = 0; i < 2000; ++i) {
        const auto value =
            number_forms::from_bits<Value>(std::uniform_int_distribution<unsigned long long>()(random.engine()));
        number._set(value);
        Settings_bytes it(NV_iterator::writing_all);
        ASSERT_TRUE(number.serialise(&it));
        it.set_mode(NV_iterator::reading);
        ASSERT_TRUE(loaded.deserialise(&it));
        ASSERT_TRUE(same_bits(loaded._get(), value));

        char text[32];
        ASSERT_GT(number._to_string(text, sizeof text), 0);
        loaded._set(Value(0));
        ASSERT_EQ(loaded._from_string(text), text + std::strlen(text));
        ASSERT_TRUE(same_bits(loaded._get(), value)) << text;

        unsigned char bytes[sizeof value];
        Send_buffer sent(bytes, sizeof bytes);
        Receive_buffer received(bytes, sizeof bytes);
        unsigned short counter = 0;
        ASSERT_FALSE(number.serialise(sent, counter).fail());
        loaded._set(Value(0));
        ASSERT_FALSE(loaded.deserialise(received, counter).fail());
        ASSERT_TRUE(same_bits(loaded._get(), value)) << text;
    }
}

} // namespace
