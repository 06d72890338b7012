#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <support/builders/Number_forms.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Recorded_fields.h>
#include <support/fakes/Recording_waiter.h>

#include <gtest/gtest.h>
#include <type_traits>

// All forms of number are compiled only into the library: these tests call its exported operations.

namespace {

using namespace NV_store;
using number_forms::edge_values;
using number_forms::Form;
using number_forms::other_value;
using number_forms::same_bits;
using number_forms::some_value;

constexpr unsigned char written_and_changed = NV_item::dirty_write | NV_item::dirty_change;

/// A number two levels below its root, with listeners at each level.
template <typename Number>
struct NV_number_of : testing::Test {
    using Held = typename Form<Number>::Value;

    NV_number_of() {
        root._set_root(&root);
        number.register_waiter(waiter, 1, true);
        group.register_waiter(waiter, 2, true);
        root.register_waiter(waiter, 3, true);
        for (NV_item* const item : {static_cast<NV_item*>(&number), static_cast<NV_item*>(&group)}) {
            QObject::connect(item, qOverload<>(&NV_item::value_changed), [this] { signals_seen += "s"; });
            QObject::connect(item, qOverload<NV_item*>(&NV_item::value_changed),
                             [this](NV_item* sender) { signals_seen += sender->get_name(); });
        }
    }

    /// The targets of the events since the last call: 1 the number's waiter, 2 its group's, 3 its root's.
    std::string notified() {
        std::string targets;
        for (const waiter_event& event : waiter.events())
            targets += std::to_string(event.target);
        waiter.clear();
        return targets;
    }
    void expect_all_notified() {
        EXPECT_EQ(number.get_flags(), written_and_changed);
        EXPECT_EQ(notified(), "123");
        EXPECT_EQ(signals_seen, "sgroupsnumber");
        signals_seen.clear();
        EXPECT_EQ(root.mutex().owner_thread(), nullptr);
    }
    void expect_none_notified() {
        EXPECT_EQ(number.get_flags(), NV_item::pristine);
        EXPECT_EQ(notified(), "");
        EXPECT_EQ(signals_seen, "");
        EXPECT_EQ(root.mutex().owner_thread(), nullptr);
    }

    module_man modules;
    Recording_waiter waiter{modules};
    NV_root root{&modules, 0, "root"};
    NV_struct group{&root, nullptr, 1, "group"};
    Number number{&group, 7, some_value<Held>, "number"};
    std::string signals_seen;
};

TYPED_TEST_SUITE(NV_number_of, number_forms::All_forms, number_forms::Names);

TYPED_TEST(NV_number_of, begins_with_its_default_and_pristine) {
    using Value = typename TestFixture::Held;
    EXPECT_EQ(this->number.get_type(), Form<TypeParam>::code);
    EXPECT_EQ(this->number.get_dimension(), 0);
    EXPECT_EQ(this->number.get_id(), 7);
    EXPECT_STREQ(this->number.get_name(), "number");
    EXPECT_EQ(this->group.get_my_index(&this->number), 0);
    EXPECT_EQ(this->number.get(), some_value<Value>);
    EXPECT_EQ(this->number._get(), some_value<Value>);
    EXPECT_EQ(this->number.get_default(), some_value<Value>);
    this->expect_none_notified();
}

TYPED_TEST(NV_number_of, has_the_range_of_its_type) {
    using Value = typename TestFixture::Held;
    Value low = some_value<Value>;
    Value high = some_value<Value>;
    this->number.get_range(low, high);
    EXPECT_TRUE(same_bits(low, Form<TypeParam>::low)) << +low;
    EXPECT_TRUE(same_bits(high, Form<TypeParam>::high)) << +high;
    EXPECT_EQ(sizeof(Value), static_cast<std::size_t>(Form<TypeParam>::width));
}

TYPED_TEST(NV_number_of, has_its_range_as_numbers_of_another_type) {
    long double low = 1;
    long double high = 1;
    this->number.get_range_as(low, high);
    const bool is_char = std::is_same_v<typename TestFixture::Held, char>;
    EXPECT_EQ(low, static_cast<long double>(Form<TypeParam>::low));
    EXPECT_EQ(high, is_char ? 255 : static_cast<long double>(Form<TypeParam>::high));
}

TYPED_TEST(NV_number_of, finds_both_ends_of_its_range_within_it) {
    EXPECT_TRUE(this->number.is_in_range(Form<TypeParam>::low));
    EXPECT_TRUE(this->number.is_in_range(Form<TypeParam>::high));
    EXPECT_TRUE(this->number.is_in_range(some_value<typename TestFixture::Held>));
}

TEST(NV_number, every_char_lies_in_the_range_of_a_char) {
    const NV_number<char, 3> number(nullptr, 1, 'a', "letter");
    for (int code = 0; code <= 255; ++code)
        EXPECT_TRUE(number.is_in_range(static_cast<char>(code))) << code;
}

TEST(NV_number, range_of_a_derived_class_is_checked) {
    struct Letter : NV_number<char, 3> {
        using NV_number::NV_number;
        void _get_range(char& low, char& high) const override {
            low = 'a';
            high = static_cast<char>(200);
        }
    };
    const Letter letter(nullptr, 1, 'a', "letter");
    int low = 0;
    int high = 0;
    letter.get_range_as(low, high);
    EXPECT_EQ(low, 'a');
    EXPECT_EQ(high, 200);
    EXPECT_FALSE(letter.is_in_range('A'));
    EXPECT_TRUE(letter.is_in_range('z'));
    EXPECT_TRUE(letter.is_in_range(static_cast<char>(200)));
    EXPECT_FALSE(letter.is_in_range(static_cast<char>(201)));
}

TYPED_TEST(NV_number_of, notifies_all_listeners_of_another_value) {
    using Value = typename TestFixture::Held;
    EXPECT_TRUE(this->number.set(other_value<Value>));
    EXPECT_EQ(this->number.get(), other_value<Value>);
    EXPECT_EQ(this->number.get_default(), some_value<Value>);
    this->expect_all_notified();
    EXPECT_EQ(this->group.get_flags(), written_and_changed);
    EXPECT_EQ(this->root.get_flags(), written_and_changed);
}

TYPED_TEST(NV_number_of, notifies_nobody_of_an_equal_value) {
    using Value = typename TestFixture::Held;
    EXPECT_FALSE(this->number.set(some_value<Value>));
    EXPECT_FALSE(this->number._set(some_value<Value>, notify_all));
    EXPECT_EQ(this->number = some_value<Value>, some_value<Value>);
    EXPECT_TRUE(this->number.set_default(true));
    EXPECT_EQ(this->number.get(), some_value<Value>);
    this->expect_none_notified();
}

TYPED_TEST(NV_number_of, keeps_every_value_of_its_type) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        this->number._set(static_cast<Value>(!value));
        EXPECT_EQ(this->number.set(value), value != static_cast<Value>(!value));
        EXPECT_TRUE(same_bits(this->number.get(), value)) << +value;
        EXPECT_EQ(this->number.set(value), false) << +value;
    }
}

TYPED_TEST(NV_number_of, notifies_the_requested_listeners) {
    using Value = typename TestFixture::Held;
    EXPECT_TRUE(this->number._set(other_value<Value>));
    EXPECT_FALSE(this->number._set(other_value<Value>));
    EXPECT_TRUE(this->number._set(some_value<Value>, notify_none));
    EXPECT_EQ(this->number._get(), some_value<Value>);
    this->expect_none_notified();

    EXPECT_TRUE(this->number._set(other_value<Value>, notify_waiters));
    EXPECT_EQ(this->number.get_flags(), written_and_changed);
    EXPECT_EQ(this->notified(), "1");
    EXPECT_EQ(this->signals_seen, "snumber");
    EXPECT_EQ(this->group.get_flags(), NV_item::pristine);

    EXPECT_TRUE(this->number._set(some_value<Value>, notify_parents));
    EXPECT_EQ(this->notified(), "");
    EXPECT_EQ(this->signals_seen, "snumbersgroupsnumber");
    EXPECT_EQ(this->group.get_flags(), written_and_changed);
}

TYPED_TEST(NV_number_of, is_assigned_values) {
    using Value = typename TestFixture::Held;
    EXPECT_EQ(this->number = other_value<Value>, other_value<Value>);
    EXPECT_EQ(this->number.get(), other_value<Value>);
    this->expect_all_notified();
}

TYPED_TEST(NV_number_of, is_set_from_a_number_of_its_tree) {
    using Value = typename TestFixture::Held;
    TypeParam other(&this->root, 9, other_value<Value>, "other");
    EXPECT_TRUE(this->number.set(other));
    EXPECT_EQ(this->number.get(), other_value<Value>);
    this->expect_all_notified();
    EXPECT_FALSE(this->number.set(other));
    EXPECT_FALSE(this->number.set(this->number));
    EXPECT_EQ(other.get_flags(), NV_item::pristine);
    this->root.remove_child(&other);
}

TYPED_TEST(NV_number_of, is_set_from_a_number_of_another_tree_or_of_none) {
    using Value = typename TestFixture::Held;
    NV_root elsewhere(nullptr, 0, "elsewhere");
    const TypeParam there(&elsewhere, 9, other_value<Value>, "there");
    const TypeParam alone(nullptr, 9, some_value<Value>, "alone");
    EXPECT_TRUE(this->number.set(there));
    this->expect_all_notified();
    EXPECT_EQ(elsewhere.mutex().owner_thread(), nullptr);
    EXPECT_EQ(this->number.get(), other_value<Value>);
    EXPECT_TRUE(this->number.set(alone));
    EXPECT_EQ(this->number.get(), some_value<Value>);
}

TYPED_TEST(NV_number_of, is_assigned_a_number) {
    using Value = typename TestFixture::Held;
    TypeParam other(&this->root, 9, other_value<Value>, "other");
    TypeParam& assigned = this->number = other;
    EXPECT_EQ(&assigned, &this->number);
    EXPECT_EQ(this->number.get(), other_value<Value>);
    EXPECT_EQ(this->number.get_default(), some_value<Value>);
    EXPECT_EQ(this->number.get_id(), 7);
    EXPECT_STREQ(this->number.get_name(), "number");
    this->expect_all_notified();
    TypeParam& itself = this->number;
    this->number = itself;
    EXPECT_EQ(this->number.get(), other_value<Value>);
    EXPECT_EQ(this->notified(), "");
    this->root.remove_child(&other);
}

TYPED_TEST(NV_number_of, is_set_under_the_lock_from_a_number_of_its_tree) {
    using Value = typename TestFixture::Held;
    TypeParam other(&this->root, 9, other_value<Value>, "other");
    const NV_lock held(this->number);
    EXPECT_TRUE(this->number._set(other, notify_all));
    EXPECT_FALSE(this->number._set(other, notify_all));
    EXPECT_EQ(this->number._get(), other_value<Value>);
    EXPECT_EQ(this->number.get_flags(), written_and_changed);
    this->root.remove_child(&other);
}

TYPED_TEST(NV_number_of, accepts_no_value_from_a_node_of_another_kind) {
    using Value = typename TestFixture::Held;
    const NV_number<int, 9> plain(nullptr, 1, 0, "plain");
    const NV_number<int, 17> special(nullptr, 1, 0, "special");
    const NV_number<float, 10> real(nullptr, 1, 0, "real");
    for (const NV_item* const other : {static_cast<const NV_item*>(&plain), static_cast<const NV_item*>(&special),
                                       static_cast<const NV_item*>(&real), static_cast<const NV_item*>(&this->root)}) {
        if (typeid(*other) == typeid(TypeParam))
            continue;
        EXPECT_FALSE(this->number.set(*other));
        EXPECT_FALSE(this->number._set(*other, notify_all));
    }
    EXPECT_EQ(this->number.get(), some_value<Value>);
    this->expect_none_notified();
}

TYPED_TEST(NV_number_of, compares_as_numbers) {
    using Value = typename TestFixture::Held;
    const TypeParam same(nullptr, 1, some_value<Value>, "same");
    const TypeParam other(nullptr, 1, other_value<Value>, "other");
    EXPECT_TRUE(this->number == same);
    EXPECT_FALSE(this->number == other);
    EXPECT_TRUE(this->number == some_value<Value>);
    EXPECT_FALSE(this->number == other_value<Value>);
    EXPECT_FALSE(this->number == 0);
    EXPECT_TRUE(this->number == 1);
    EXPECT_TRUE(this->number == "1");
    EXPECT_TRUE(this->number == " \t1 and more");
    EXPECT_FALSE(this->number == "0");
    for (const char* const junk : {"", " ", "x1", "one", "\n1", "+1", "99999999999999999999999999999999999"})
        EXPECT_FALSE(this->number == junk) << junk;
    EXPECT_FALSE(this->number == static_cast<const char*>(nullptr));
}

TYPED_TEST(NV_number_of, computes_in_its_type) {
    using Value = typename TestFixture::Held;
    if constexpr (std::is_same_v<Value, bool>) {
        EXPECT_EQ(this->number += true, true);
        EXPECT_EQ(this->number -= true, false);
        EXPECT_EQ(this->number -= true, true); // -1 is not 0
    } else {
        EXPECT_EQ(this->number += Value(9), Value(10));
        this->expect_all_notified();
        EXPECT_EQ(this->number -= Value(4), Value(6));
        EXPECT_EQ(this->number++, Value(6));
        EXPECT_EQ(this->number.get(), Value(7));
        EXPECT_EQ(this->notified(), "123123");
        EXPECT_EQ(this->number += Value(0), Value(7));
        EXPECT_EQ(this->notified(), "");
        TypeParam other(nullptr, 1, Value(3), "other");
        EXPECT_EQ(this->number - other, Value(4));
        EXPECT_EQ(this->number - this->number, Value(0));
        EXPECT_EQ(this->notified(), "");
    }
}

TYPED_TEST(NV_number_of, wraps_round_at_the_ends_of_an_integer) {
    using Value = typename TestFixture::Held;
    using Limits = std::numeric_limits<Value>;
    if constexpr (std::is_integral_v<Value> && !std::is_same_v<Value, bool>) {
        this->number.set(Limits::max());
        EXPECT_EQ(this->number++, Limits::max());
        EXPECT_EQ(this->number.get(), Limits::min());
        EXPECT_EQ(this->number -= Value(1), Limits::max());
        EXPECT_EQ(this->number += Limits::max(), static_cast<Value>(-2));
        this->number.set(Limits::min());
        TypeParam largest(nullptr, 1, Limits::max(), "largest");
        EXPECT_EQ(this->number - largest, Value(1));
    } else if constexpr (std::is_floating_point_v<Value>) {
        this->number.set(Limits::max());
        EXPECT_EQ(this->number += Limits::max(), Limits::infinity());
    } else {
        EXPECT_EQ(this->number++, true);
        EXPECT_EQ(this->number.get(), true);
    }
}

TYPED_TEST(NV_number_of, is_set_to_its_default_whatever_the_argument) {
    using Value = typename TestFixture::Held;
    for (const bool all : {false, true}) {
        this->number._set(other_value<Value>);
        EXPECT_TRUE(this->number.set_default(all));
        EXPECT_EQ(this->number.get(), some_value<Value>);
        this->expect_all_notified();
    }
}

TYPED_TEST(NV_number_of, is_read_from_its_own_text) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        char text[32];
        this->number._set(value);
        const int length = this->number._to_string(text, sizeof text);
        ASSERT_GT(length, 0) << +value; // the longest fits the buffer of `_print`
        EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(text));
        EXPECT_TRUE(this->number == text) << text;

        this->number._set(static_cast<Value>(!value));
        EXPECT_EQ(this->number._from_string(text), text + length);
        EXPECT_TRUE(same_bits(this->number._get(), value)) << text;
    }
}

TYPED_TEST(NV_number_of, notifies_all_listeners_of_a_value_from_text) {
    using Value = typename TestFixture::Held;
    const std::string text = std::is_same_v<Value, bool> ? " 0,rest" : " 98,rest";
    EXPECT_EQ(this->number._from_string(text.c_str()), text.c_str() + text.find(','));
    EXPECT_EQ(this->number.get(), other_value<Value>);
    this->expect_all_notified();
}

TYPED_TEST(NV_number_of, keeps_its_value_when_a_text_is_not_a_number) {
    using Value = typename TestFixture::Held;
    for (const char* const junk : {"", "  ", "x", "-", ",98", "\n98", "--98", "+98"})
        EXPECT_EQ(this->number._from_string(junk), nullptr) << junk;
    const char* const too_large = std::is_floating_point_v<Value> ? "9e99999" : "18446744073709551616";
    EXPECT_EQ(this->number._from_string(too_large), nullptr);
    EXPECT_EQ(this->number._from_string(nullptr), nullptr);
    EXPECT_EQ(this->number.get(), some_value<Value>);
    this->expect_none_notified();
}

TYPED_TEST(NV_number_of, is_printed_by_name) {
    Recorded_fields fields;
    this->number._print(fields, "swath");
    this->number.print(fields);
    EXPECT_EQ(fields.text(), "swath=1;number=1;");
}

TYPED_TEST(NV_number_of, is_printed_whole_at_any_length) {
    using Value = typename TestFixture::Held;
    for (const Value value : edge_values<Value>()) {
        Recorded_fields fields;
        char text[64];
        this->number._set(value);
        ASSERT_GT(this->number._to_string(text, sizeof text), 0);
        this->number.print(fields);
        EXPECT_EQ(fields.text(), "number=" + std::string(text) + ";");
    }
}

// ---- Floating-point numbers ----

template <typename Number>
struct NV_floating_number : testing::Test {
    using Held = typename Form<Number>::Value;
    Number number{nullptr, 1, Held(0), "number"};
};
using Floating_forms = testing::Types<NV_number<float, 10>, NV_number<double, 11>>;
TYPED_TEST_SUITE(NV_floating_number, Floating_forms, number_forms::Names);

TYPED_TEST(NV_floating_number, treats_minus_zero_as_zero) {
    EXPECT_FALSE(this->number.set(-0.0));
    EXPECT_EQ(this->number.get_flags(), NV_item::pristine);
    EXPECT_TRUE(std::signbit(this->number.get())); // stored nevertheless
    EXPECT_TRUE(this->number == "0");
}

TYPED_TEST(NV_floating_number, treats_nan_as_another_value_each_time) {
    const auto nan = std::numeric_limits<typename TestFixture::Held>::quiet_NaN();
    EXPECT_TRUE(this->number.set(nan));
    EXPECT_TRUE(this->number.set(nan));
    EXPECT_FALSE(this->number == nan);
    EXPECT_FALSE(this->number == "nan");
    EXPECT_FALSE(this->number == this->number);
}

TYPED_TEST(NV_floating_number, has_a_range_without_zero_and_below) {
    typename TestFixture::Held low{};
    typename TestFixture::Held high{};
    this->number.get_range(low, high);
    EXPECT_GT(low, 0);
}

TYPED_TEST(NV_floating_number, finds_zero_and_less_and_not_a_number_outside_its_range) {
    using Value = typename Form<TypeParam>::Value;
    EXPECT_FALSE(this->number.is_in_range(Value(0)));
    EXPECT_FALSE(this->number.is_in_range(Value(-1)));
    EXPECT_FALSE(this->number.is_in_range(std::numeric_limits<Value>::quiet_NaN()));
    EXPECT_TRUE(this->number.is_in_range(Value(1)));
}

// ---- Binary interface ----

TEST(NV_number, adds_its_range_after_the_slots_of_an_item) {
    EXPECT_EQ(vtable_slot(&NV_number<int, 9>::_get_range), vtable_slot(&NV_item::print) + 1);
    EXPECT_EQ(vtable_slot(&NV_number<double, 11>::_get_range), vtable_slot(&NV_item::print) + 1);
    EXPECT_EQ(vtable_slot(&NV_number<int, 9>::get_range), not_virtual);
}

} // namespace
