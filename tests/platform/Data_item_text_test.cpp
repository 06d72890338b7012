#include <platform/Data_item_text.h>

#include <support/builders/Random.h>
#include <support/files/Decimal_comma.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

namespace {

template <typename T>
std::string text_of(T value) {
    char text[64];
    const int length = Data_item_stringify<T>::to_string(value, text, sizeof text);
    EXPECT_EQ(text[length], '\0');
    return {text, static_cast<std::size_t>(length)};
}

/// The value of a text; nothing unless all of it is a number.
template <typename T>
std::optional<T> value_of(const std::string& text) {
    T value{};
    const char* const end = Data_item_destringify<T>::from_string(text.c_str(), value);
    if (end != text.c_str() + text.size())
        return std::nullopt;
    return value;
}

template <typename T>
using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

template <typename T>
T from_bits(Bits<T> bits) {
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <typename T>
bool reads_back(T value) {
    const std::optional<T> read = value_of<T>(text_of(value));
    return read && std::memcmp(&*read, &value, sizeof value) == 0;
}

template <typename T>
struct Data_item_text : testing::Test {};
using Integers = testing::Types<char, unsigned char, unsigned short, unsigned int, signed char, short, int,
                                unsigned long long, long long>;
TYPED_TEST_SUITE(Data_item_text, Integers);

/// The limits of a type as text; a char counts from 0 to 255.
template <typename T>
struct Limit_texts {
    using Shown = std::conditional_t<std::is_same_v<T, char>, unsigned char, T>;
    using Limits = std::numeric_limits<Shown>;
    static std::string low() { return std::to_string(Limits::min()); }
    static std::string high() { return std::to_string(Limits::max()); }
    /// The next number away from 0.
    static std::string next(std::string number) {
        for (std::size_t i = number.size(); i-- > 0;) {
            if (number[i] != '9') {
                ++number[i];
                break;
            }
            number[i] = '0';
        }
        return number;
    }
};

TYPED_TEST(Data_item_text, integers_are_decimal_up_to_their_limits) {
    using Shown = typename Limit_texts<TypeParam>::Shown;
    using Limits = typename Limit_texts<TypeParam>::Limits;
    EXPECT_EQ(text_of(static_cast<TypeParam>(Limits::max())), Limit_texts<TypeParam>::high());
    EXPECT_EQ(text_of(static_cast<TypeParam>(Limits::min())), Limit_texts<TypeParam>::low());
    EXPECT_EQ(value_of<TypeParam>(Limit_texts<TypeParam>::high()), static_cast<TypeParam>(Limits::max()));
    EXPECT_EQ(value_of<TypeParam>(Limit_texts<TypeParam>::low()), static_cast<TypeParam>(Limits::min()));
    EXPECT_EQ(text_of(static_cast<TypeParam>(Shown(7))), "7");
    EXPECT_EQ(value_of<TypeParam>(" \t 0007"), TypeParam(7));
}

TYPED_TEST(Data_item_text, integers_that_do_not_fit_are_refused) {
    using Texts = Limit_texts<TypeParam>;
    TypeParam value = 5;
    for (const std::string& text :
         {Texts::next(Texts::high()), Texts::high() + "0", std::string("99999999999999999999999"),
          std::is_signed_v<typename Texts::Shown> ? Texts::next(Texts::low()) : std::string("-1")})
        EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(text.c_str(), value), nullptr) << text;
    EXPECT_EQ(value, TypeParam(5));
}

TYPED_TEST(Data_item_text, junk_is_no_integer) {
    TypeParam value = 5;
    for (const char* const text : {"", " ", "\n7", "x", "+7", "- 7", "--7", "-", ".7", "inf", "true", "\xFF"})
        EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(text, value), nullptr) << text;
    EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(nullptr, value), nullptr);
    EXPECT_EQ(value, TypeParam(5));
}

TYPED_TEST(Data_item_text, reading_an_integer_ends_after_its_last_digit) {
    for (const char* const text : {"12,", "12.5", "12e3", "12 ", "12x", "12}"}) {
        TypeParam value{};
        EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(text, value), text + 2) << text;
        EXPECT_EQ(value, TypeParam(12));
    }
}

TYPED_TEST(Data_item_text, every_small_integer_reads_back) {
    for (int i = -32768; i <= 65535; ++i)
        ASSERT_TRUE(reads_back(static_cast<TypeParam>(i))) << i;
}

TEST(Data_item_text_bool, is_a_digit_and_may_be_read_from_a_word) {
    EXPECT_EQ(text_of(true), "1");
    EXPECT_EQ(text_of(false), "0");
    EXPECT_EQ(value_of<bool>("1"), true);
    EXPECT_EQ(value_of<bool>("0"), false);
    EXPECT_EQ(value_of<bool>(" 01"), true);
    EXPECT_EQ(value_of<bool>("true"), true);
    EXPECT_EQ(value_of<bool>("\tfalse"), false);
    bool value = true;
    for (const char* const text : {"", "2", "-1", "99999999999", "True", "tru", "fals", "yes"})
        EXPECT_EQ(Data_item_destringify<bool>::from_string(text, value), nullptr) << text;
    EXPECT_TRUE(value);
    const char* const more = "falsehood";
    EXPECT_EQ(Data_item_destringify<bool>::from_string(more, value), more + 5);
    EXPECT_FALSE(value);
}

TEST(Data_item_text_size, must_be_enough_for_the_whole_text_and_its_nul) {
    for (int size = -1; size < 8; ++size) {
        char text[] = "########";
        const int length = Data_item_stringify<int>::to_string(-1234, text, size);
        EXPECT_EQ(length, size >= 6 ? 5 : 0) << size;
        EXPECT_STREQ(text, size >= 6 ? "-1234" : "########") << size;
        EXPECT_EQ(text[7], '#');
    }
    EXPECT_EQ(Data_item_stringify<int>::to_string(-1234, nullptr, 100), 0);
}

template <typename T>
struct Data_item_text_floating : testing::Test {};
using Floating_types = testing::Types<float, double>;
TYPED_TEST_SUITE(Data_item_text_floating, Floating_types);

TYPED_TEST(Data_item_text_floating, is_the_shortest_that_reads_back) {
    EXPECT_EQ(text_of(TypeParam(0.1)), "0.1");
    EXPECT_EQ(text_of(TypeParam(1)), "1");
    EXPECT_EQ(text_of(TypeParam(-2.5)), "-2.5");
    EXPECT_EQ(text_of(TypeParam(1e22)), "1e+22");
    EXPECT_EQ(text_of(TypeParam(0)), "0");
    EXPECT_EQ(text_of(TypeParam(-0.0)), "-0");
    EXPECT_EQ(text_of(std::numeric_limits<TypeParam>::infinity()), "inf");
    EXPECT_EQ(text_of(-std::numeric_limits<TypeParam>::infinity()), "-inf");
    EXPECT_EQ(text_of(std::numeric_limits<TypeParam>::quiet_NaN()), "nan");
}

TEST(Data_item_text_limits, of_floating_point_types_are_exact) {
    EXPECT_EQ(text_of(std::numeric_limits<float>::max()), "3.4028235e+38");
    EXPECT_EQ(text_of(std::numeric_limits<float>::min()), "1.1754944e-38");
    EXPECT_EQ(text_of(std::numeric_limits<float>::denorm_min()), "1e-45");
    EXPECT_EQ(text_of(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(text_of(std::numeric_limits<double>::min()), "2.2250738585072014e-308");
    EXPECT_EQ(text_of(std::numeric_limits<double>::denorm_min()), "5e-324");
    EXPECT_EQ(text_of(from_bits<float>(0x7FC00001)), "nan(0x7fc00001)");
    EXPECT_EQ(text_of(from_bits<double>(0xFFF0000000000001)), "nan(0xfff0000000000001)");
}

TYPED_TEST(Data_item_text_floating, limits_read_back_bit_for_bit) {
    using Limits = std::numeric_limits<TypeParam>;
    for (const TypeParam value : {TypeParam(0), Limits::min(), Limits::max(), Limits::denorm_min(), Limits::epsilon(),
                                  Limits::infinity(), Limits::quiet_NaN(), Limits::signaling_NaN()})
        for (const TypeParam sign : {TypeParam(1), TypeParam(-1)})
            EXPECT_TRUE(reads_back(std::copysign(value, sign))) << text_of(std::copysign(value, sign));
}

TYPED_TEST(Data_item_text_floating, random_bits_read_back) {
    constexpr Bits<TypeParam> exponent = sizeof(TypeParam) == 4 ? 0x7F800000 : 0x7FF0000000000000;
    Random random;
    std::uniform_int_distribution<Bits<TypeParam>> any;
    for (int i = 0; i < 20000; ++i) {
        const Bits<TypeParam> bits = any(random.engine());
        ASSERT_TRUE(reads_back(from_bits<TypeParam>(bits))) << std::hex << bits;
        ASSERT_TRUE(reads_back(from_bits<TypeParam>(bits & ~exponent))) << std::hex << bits; // a denormal number
        ASSERT_TRUE(reads_back(from_bits<TypeParam>(bits | exponent))) << std::hex << bits;  // a NaN or infinity
    }
}

TYPED_TEST(Data_item_text_floating, reads_the_usual_notations) {
    EXPECT_EQ(value_of<TypeParam>(" 1.5"), TypeParam(1.5));
    EXPECT_EQ(value_of<TypeParam>("-.5"), TypeParam(-0.5));
    EXPECT_EQ(value_of<TypeParam>("2."), TypeParam(2));
    EXPECT_EQ(value_of<TypeParam>("1E3"), TypeParam(1000));
    EXPECT_EQ(value_of<TypeParam>("1e+3"), TypeParam(1000));
    EXPECT_EQ(value_of<TypeParam>("infinity"), std::numeric_limits<TypeParam>::infinity());
    const char* const list = "1.5,2";
    TypeParam value{};
    EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(list, value), list + 3);
}

TYPED_TEST(Data_item_text_floating, number_too_small_for_the_type_does_not_fit) {
    TypeParam value = 5;
    EXPECT_EQ(Data_item_destringify<TypeParam>::from_string("1e-400", value), nullptr);
    EXPECT_EQ(value, TypeParam(5));
    EXPECT_EQ(value_of<TypeParam>("0e-400"), TypeParam(0));
}

TYPED_TEST(Data_item_text_floating, junk_is_no_number) {
    TypeParam value = 5;
    for (const char* const text : {"", " ", ".", "-", "e5", "+1", "\n1", "x", "1e999999", "-1e999999", "i", "na"})
        EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(text, value), nullptr) << text;
    EXPECT_EQ(value, TypeParam(5));
}

TYPED_TEST(Data_item_text_floating, bits_of_a_number_are_not_accepted_as_those_of_a_nan) {
    for (const char* const text : {"nan(0x0)", "nan(0x1)", "nan(0x3f800000)"}) {
        TypeParam value = 5;
        Data_item_destringify<TypeParam>::from_string(text, value);
        EXPECT_TRUE(std::isnan(value)) << text;
    }
    TypeParam value = 5;
    const char* const open = "nan(0x7fc00001";
    EXPECT_EQ(Data_item_destringify<TypeParam>::from_string(open, value), open + 3);
    EXPECT_TRUE(std::isnan(value));
}

TEST(Data_item_text_locale, never_matters) {
    const Decimal_comma locale;
    ASSERT_TRUE(locale.is_set()) << locale.problem();
    EXPECT_EQ(text_of(1234567.5), "1234567.5");
    EXPECT_EQ(text_of(1234567), "1234567");
    EXPECT_EQ(value_of<double>("1.5"), 1.5);
    EXPECT_EQ(value_of<float>("1.5"), 1.5F);
    double value = 0;
    const char* const comma = "1,5";
    EXPECT_EQ(Data_item_destringify<double>::from_string(comma, value), comma + 1);
}

} // namespace
