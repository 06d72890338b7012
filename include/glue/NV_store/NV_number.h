#pragma once

#include <glue/NV_store/NV_item.h>

#include <type_traits>

namespace NV_store {

/// A setting that is a number: a value and a default.
///
///     T                    type code    range
///     bool                 2, 17        false to true
///     char                 3, 17        0 to 255, also where the processor's char has a sign
///     unsigned char        4, 17        0 to 255
///     unsigned short       5, 17        0 to 65535
///     unsigned int         6, 17        0 to 4294967295
///     signed char          7, 17        -128 to 127
///     short                8, 17        -32768 to 32767
///     int                  9, 17        -2147483648 to 2147483647
///     float                10           1.1754944e-38 to 3.4028235e+38
///     double               11           2.2250738585072014e-308 to 1.7976931348623157e+308
///     unsigned long long   15, 17       0 to 18446744073709551615
///     long long            16, 17       -9223372036854775808 to 9223372036854775807
///
/// On purpose the ranges of float and double begin with the smallest positive normal number, so that a check against
/// them refuses zero and negative values. No operation checks values against the range.
///
/// A number with type code 17 differs only in the code in its records. The two forms are not interchangeable in a file,
/// and a reader without such a setting cannot skip its record.
///
/// The library has these 22 (`GLUE_NV_NUMBERS`) and no others. Values compare as numbers: -0.0 equals 0.0, and a NaN
/// differs from every value, also from itself.
///
/// `get`, `get_range`, `is_in_range`, `set`, the assignments, the arithmetic and the comparisons of two values acquire
/// the lock, see `NV_item`, and notify parents and waiters before they release it. All others leave it to the caller.
template <typename T, int Type>
class GLUE_EXPORT NV_number : public NV_item {
  public:
    NV_number(NV_container* parent, unsigned short id, T initial, const char* name);
    NV_number(const NV_number&) = default;

    using NV_item::deserialise;
    using NV_item::serialise;

    int get_type() const override;
    [[nodiscard]] bool serialise(NV_iterator* it) override;
    /// Notifies nobody; see `signal_all`.
    bool deserialise(NV_iterator* it) override;
    bool set_default(bool all) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    /// Notifies parents and waiters when the value differs.
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// Writes the whole text and its NUL, or nothing when they do not fit. \return characters written
    int _to_string(char* buf, int len) const override;
    const char* _from_string(const char* text) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The range of the type, see the table.
    virtual void _get_range(T& low, T& high) const;

    // ---- The range ----

    /// Where char has a sign, the highest char is the byte 255, which C++ compares as -1: use the two operations that
    /// follow.
    void get_range(T& low, T& high) const;
    /// The range as numbers of another type, one that can hold them: 0 to 255 for a char. An addition of ours.
    template <typename Other>
    void get_range_as(Other& low, Other& high) const {
        T own_low{};
        T own_high{};
        get_range(own_low, own_high);
        low = static_cast<Other>(as_number(own_low));
        high = static_cast<Other>(as_number(own_high));
    }
    /// Whether a value lies in the range; a char counts as 0 to 255. An addition of ours.
    bool is_in_range(T value) const {
        T low{};
        T high{};
        get_range(low, high);
        return as_number(low) <= as_number(value) && as_number(value) <= as_number(high);
    }

    // ---- The value ----

    T get() const;
    T _get() const { return value_; }
    T get_default() const { return default_value_; }

    // ---- Setting: true when the value differed; otherwise nothing is notified, marked or sent ----

    bool set(T value);
    bool _set(T value);
    bool _set(T value, notify_t how);
    /// From a number of the same kind; false, with nothing set, from any other node.
    bool set(const NV_item& other);
    bool _set(const NV_item& other, notify_t how);

    /// \return the value
    T operator=(T value); // NOLINT(misc-unconventional-assign-operator): as a number would
    NV_number& operator=(const NV_number& other);

    bool operator==(const NV_number& other) const;
    bool operator==(T value) const;
    /// Compares with a number of another type, converted. An addition of ours: without it, `number == 0` could mean the
    /// null text.
    template <typename Other, typename = std::enable_if_t<std::is_arithmetic_v<Other> && !std::is_same_v<Other, T>>>
    bool operator==(Other value) const {
        return *this == static_cast<T>(value);
    }
    /// Compares with the number at the beginning of a text; false when there is none. Leaves the lock to the caller.
    bool operator==(const char* text) const;

    // ---- Arithmetic in T; an integer that is too large wraps round ----

    T operator+=(T value);
    T operator-=(T value);
    /// \return the value before
    T operator++(int); // NOLINT(cert-dcl21-cpp)
    T operator-(NV_number& other) const;

    // ---- Values for a peer, and records without a node ----

    static bool raw_serialise(CDS::Remote::Send_buffer& buffer, T value);
    static bool raw_deserialise(CDS::Remote::Receive_buffer& buffer, T& value);
    static bool deserialise_unknown(NV_iterator* it);
    static bool deserialise_unknown_array(NV_iterator* it, DTS::Defs::Storage_class storage_class);

  private:
    /// A char as 0 to 255, every other value as it is.
    static auto as_number(T value) {
        if constexpr (std::is_same_v<T, char>)
            return static_cast<unsigned char>(value);
        else
            return value;
    }

    const NV_number* same_kind(const NV_item& other) const;

    T value_;
    T default_value_;
};

/// All numbers of the library: `DO(T, Type)` for each. An addition of ours.
#define GLUE_NV_NUMBERS(DO)                                                                                            \
    DO(bool, 2)                                                                                                        \
    DO(bool, 17)                                                                                                       \
    DO(char, 3)                                                                                                        \
    DO(char, 17)                                                                                                       \
    DO(unsigned char, 4)                                                                                               \
    DO(unsigned char, 17)                                                                                              \
    DO(unsigned short, 5)                                                                                              \
    DO(unsigned short, 17)                                                                                             \
    DO(unsigned int, 6)                                                                                                \
    DO(unsigned int, 17)                                                                                               \
    DO(signed char, 7)                                                                                                 \
    DO(signed char, 17)                                                                                                \
    DO(short, 8)                                                                                                       \
    DO(short, 17)                                                                                                      \
    DO(int, 9)                                                                                                         \
    DO(int, 17)                                                                                                        \
    DO(float, 10)                                                                                                      \
    DO(double, 11)                                                                                                     \
    DO(unsigned long long, 15)                                                                                         \
    DO(unsigned long long, 17)                                                                                         \
    DO(long long, 16)                                                                                                  \
    DO(long long, 17)

#define GLUE_DECLARE_NV_NUMBER(T, Type) extern template class NV_number<T, Type>;
GLUE_NV_NUMBERS(GLUE_DECLARE_NV_NUMBER)
#undef GLUE_DECLARE_NV_NUMBER

} // namespace NV_store
