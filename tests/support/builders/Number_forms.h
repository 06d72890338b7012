#pragma once

#include <glue/NV_store/NV_number.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

/// The properties of each form of number in the library, written independently of it.
namespace number_forms {

using Scalar_forms =
    testing::Types<NV_store::NV_number<bool, 2>, NV_store::NV_number<char, 3>, NV_store::NV_number<unsigned char, 4>,
                   NV_store::NV_number<unsigned short, 5>, NV_store::NV_number<unsigned int, 6>,
                   NV_store::NV_number<signed char, 7>, NV_store::NV_number<short, 8>, NV_store::NV_number<int, 9>,
                   NV_store::NV_number<float, 10>, NV_store::NV_number<double, 11>,
                   NV_store::NV_number<unsigned long long, 15>, NV_store::NV_number<long long, 16>>;

using All_forms =
    testing::Types<NV_store::NV_number<bool, 2>, NV_store::NV_number<bool, 17>, NV_store::NV_number<char, 3>,
                   NV_store::NV_number<char, 17>, NV_store::NV_number<unsigned char, 4>,
                   NV_store::NV_number<unsigned char, 17>, NV_store::NV_number<unsigned short, 5>,
                   NV_store::NV_number<unsigned short, 17>, NV_store::NV_number<unsigned int, 6>,
                   NV_store::NV_number<unsigned int, 17>, NV_store::NV_number<signed char, 7>,
                   NV_store::NV_number<signed char, 17>, NV_store::NV_number<short, 8>, NV_store::NV_number<short, 17>,
                   NV_store::NV_number<int, 9>, NV_store::NV_number<int, 17>, NV_store::NV_number<float, 10>,
                   NV_store::NV_number<double, 11>, NV_store::NV_number<unsigned long long, 15>,
                   NV_store::NV_number<unsigned long long, 17>, NV_store::NV_number<long long, 16>,
                   NV_store::NV_number<long long, 17>>;

template <typename T>
struct Facts;

#define NUMBER_FACTS(T, code, bytes, from, to)                                                                         \
    template <>                                                                                                        \
    struct Facts<T> {                                                                                                  \
        static constexpr const char* name = #T;                                                                        \
        static constexpr unsigned char scalar_code = code;                                                             \
        static constexpr int width = bytes;                                                                            \
        static constexpr T low = static_cast<T>(from);                                                                 \
        static constexpr T high = static_cast<T>(to);                                                                  \
    };

NUMBER_FACTS(bool, 2, 1, false, true)
NUMBER_FACTS(char, 3, 1, 0, 255)
NUMBER_FACTS(unsigned char, 4, 1, 0, 255)
NUMBER_FACTS(unsigned short, 5, 2, 0, 65535)
NUMBER_FACTS(unsigned int, 6, 4, 0, 4294967295)
NUMBER_FACTS(signed char, 7, 1, -128, 127)
NUMBER_FACTS(short, 8, 2, -32768, 32767)
NUMBER_FACTS(int, 9, 4, -2147483647 - 1, 2147483647)
NUMBER_FACTS(float, 10, 4, 1.1754944e-38F, 3.4028235e+38F)
NUMBER_FACTS(double, 11, 8, 2.2250738585072014e-308, 1.7976931348623157e+308)
NUMBER_FACTS(unsigned long long, 15, 8, 0, 18446744073709551615ULL)
NUMBER_FACTS(long long, 16, 8, -9223372036854775807LL - 1, 9223372036854775807LL)

#undef NUMBER_FACTS

template <typename Number>
struct Form;
template <typename T, int Type>
struct Form<NV_store::NV_number<T, Type>> : Facts<T> {
    using Value = T;
    static constexpr unsigned char code = Type;
};

/// Names a typed test after its form: "unsigned_char_17".
struct Names {
    template <typename Number>
    static std::string GetName(int) {
        std::string name = std::string(Form<Number>::name) + "_" + std::to_string(Form<Number>::code);
        for (char& character : name)
            character = character == ' ' ? '_' : character;
        return name;
    }
};

template <typename T>
T from_bits(unsigned long long bits) {
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <typename T>
bool same_bits(T a, T b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// The value as it is stored: its bytes, the lowest first, as in the memory of the test's machine.
template <typename T>
std::string stored(T value) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the test compares with the bytes in memory");
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// The edges of a type and other critical values: no two equal ones, no NaN.
template <typename T>
std::vector<T> edge_values() {
    using Limits = std::numeric_limits<T>;
    if constexpr (std::is_same_v<T, bool>)
        return {false, true};
    else if constexpr (std::is_floating_point_v<T>)
        return {T(0),
                T(1),
                T(-1),
                Limits::min(),
                Limits::max(),
                Limits::lowest(),
                Limits::denorm_min(),
                -Limits::denorm_min(),
                T(0.1),
                T(1) / T(3),
                Limits::infinity(),
                -Limits::infinity()};
    else
        return {Limits::min(), Limits::max(), T(1), T(100), static_cast<T>(Limits::max() - 1)};
}

/// Two values of a type that differ, neither 0.
template <typename T>
constexpr T some_value = static_cast<T>(true);
template <typename T>
constexpr T other_value = static_cast<T>(std::is_same_v<T, bool> ? 0 : 98);

/// The header before a stored value.
inline std::string header(unsigned char type_byte, unsigned char kind, unsigned short id) {
    const unsigned char bytes[] = {static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8), kind,
                                   type_byte};
    return {reinterpret_cast<const char*>(bytes), sizeof bytes};
}

} // namespace number_forms
