#pragma once

#include <glue/NV_store/NV_item.h>

#include <type_traits>

namespace NV_store {

/// A setting that is a number: a value and the default that it began with.
///
///     T                    type code    range
///     bool                 2, 17        false to true
///     char                 3, 17        0 to 255, whatever the processor makes of a char
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
/// On purpose the ranges of float and double begin with the smallest positive normal number, so that what checks
/// against them refuses zero and negative values. Nothing here keeps a value to its range.
///
/// With type code 17 a number is the same but for the code that its records bear. Both are not interchangeable in a
/// file, and a reader without such a setting cannot pass over its record.
///
/// The library has these 22; there are no others. Values compare as numbers: -0.0 is 0.0, and a NaN is always another
/// value, even than itself.
///
/// `get`, `get_range`, `set`, the assignments, the arithmetic and the comparisons of two values take the lock, see
/// `NV_item`, and tell parents and waiters before they let go. All the others leave it to the caller.
template <typename T, int Type>
class GLUE_EXPORT NV_number : public NV_item {
  public:
    NV_number(NV_container* parent, unsigned short id, T initial, const char* name);
    NV_number(const NV_number&) = default;

    using NV_item::deserialise;
    using NV_item::serialise;

    int get_type() const override;
    bool serialise(NV_iterator* it) override;
    /// Tells nobody; see `signal_all`.
    bool deserialise(NV_iterator* it) override;
    bool set_default(bool all) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    /// Tells parents and waiters when the value is another one.
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// The whole text, or, when it has no room with its NUL, nothing. \return characters written
    int _to_string(char* buf, int len) const override;
    const char* _from_string(const char* text) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The range of the type, see the table.
    virtual void _get_range(T& low, T& high) const;
    void get_range(T& low, T& high) const;

    // ---- The value ----

    T get() const;
    T _get() const { return value_; }
    T get_default() const { return default_value_; }

    // Setting: true when the value was another one; nothing is told, marked or sent otherwise

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
    /// Compares with a number of another type, converted. An addition of ours: without it, `number == 0` might mean
    /// the null text.
    template <typename Other, typename = std::enable_if_t<std::is_arithmetic_v<Other> && !std::is_same_v<Other, T>>>
    bool operator==(Other value) const {
        return *this == static_cast<T>(value);
    }
    /// Compares with the number that a text begins with; false when it begins with none. Leaves the lock to the caller.
    bool operator==(const char* text) const;

    // ---- Arithmetic in T; what does not fit an integer wraps round ----

    T operator+=(T value);
    T operator-=(T value);
    /// \return the value before
    T operator++(int); // NOLINT(cert-dcl21-cpp)
    T operator-(NV_number& other) const;

    // ---- Values for a peer, and records that no node is there for ----

    static bool raw_serialise(CDS::Remote::Send_buffer& buffer, T value);
    static bool raw_deserialise(CDS::Remote::Receive_buffer& buffer, T& value);
    static bool deserialise_unknown(NV_iterator* it);
    static bool deserialise_unknown_array(NV_iterator* it, DTS::Defs::Storage_class storage_class);

  private:
    const NV_number* same_kind(const NV_item& other) const;

    T value_;
    T default_value_;
};

extern template class NV_number<bool, 2>;
extern template class NV_number<bool, 17>;
extern template class NV_number<char, 3>;
extern template class NV_number<char, 17>;
extern template class NV_number<unsigned char, 4>;
extern template class NV_number<unsigned char, 17>;
extern template class NV_number<unsigned short, 5>;
extern template class NV_number<unsigned short, 17>;
extern template class NV_number<unsigned int, 6>;
extern template class NV_number<unsigned int, 17>;
extern template class NV_number<signed char, 7>;
extern template class NV_number<signed char, 17>;
extern template class NV_number<short, 8>;
extern template class NV_number<short, 17>;
extern template class NV_number<int, 9>;
extern template class NV_number<int, 17>;
extern template class NV_number<float, 10>;
extern template class NV_number<double, 11>;
extern template class NV_number<unsigned long long, 15>;
extern template class NV_number<unsigned long long, 17>;
extern template class NV_number<long long, 16>;
extern template class NV_number<long long, 17>;

} // namespace NV_store
