#include <glue/NV_store/NV_number.h>

#include "NV_store/skip_unknown_number.h"

#include <glue/NV_store/NV_record.h>

#include <platform/Data_item_text.h>
#include <platform/Debug.h>

#include <limits>
#include <type_traits>

namespace NV_store {

namespace {

using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;

/// How a type of number is stored, and how it is sent to a peer.
template <typename T>
struct Codec;

// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are types and parts of names
#define CODEC(T, name, NAME)                                                                                           \
    template <>                                                                                                        \
    struct Codec<T> {                                                                                                  \
        static bool push(NV_iterator* it, T value) { return it->push_##name(value, record_options); }                  \
        static bool pop(NV_iterator* it, T& value) { return it->pop_##name(value, record_options); }                   \
        static int append(Send_buffer& buffer, T value) { return buffer.append_##NAME(value); }                        \
        static int pop(Receive_buffer& buffer, T& value) { return buffer.pop_##NAME(value); }                          \
    };

CODEC(bool, bool, BOOL)
CODEC(char, char, CHAR)
CODEC(unsigned char, uint8, UINT8)
CODEC(unsigned short, uint16, UINT16)
CODEC(unsigned int, uint32, UINT32)
CODEC(signed char, int8, INT8)
CODEC(short, int16, INT16)
CODEC(int, int32, INT32)
CODEC(float, float, FLOAT)
CODEC(double, double, DOUBLE)

#undef CODEC
// NOLINTEND(bugprone-macro-parentheses)

/// The 64-bit types have other names on other machines.
template <>
struct Codec<unsigned long long> {
    static bool push(NV_iterator* it, unsigned long long value) { return it->push_uint64(value, record_options); }
    static bool pop(NV_iterator* it, unsigned long long& value) {
        std::uint64_t stored = 0;
        const bool read = it->pop_uint64(stored, record_options);
        if (read)
            value = stored;
        return read;
    }
    static int append(Send_buffer& buffer, unsigned long long value) { return buffer.append_UINT64(value); }
    static int pop(Receive_buffer& buffer, unsigned long long& value) {
        std::uint64_t received = 0;
        const int count = buffer.pop_UINT64(received);
        if (count > 0)
            value = received;
        return count;
    }
};

template <>
struct Codec<long long> {
    static bool push(NV_iterator* it, long long value) { return it->push_int64(value, record_options); }
    static bool pop(NV_iterator* it, long long& value) {
        std::int64_t stored = 0;
        const bool read = it->pop_int64(stored, record_options);
        if (read)
            value = stored;
        return read;
    }
    static int append(Send_buffer& buffer, long long value) { return buffer.append_INT64(value); }
    static int pop(Receive_buffer& buffer, long long& value) {
        std::int64_t received = 0;
        const int count = buffer.pop_INT64(received);
        if (count > 0)
            value = received;
        return count;
    }
};

/// The type for arithmetic, so that an integer that is too large wraps round.
template <typename T, typename = void>
struct Arithmetic {
    using type = T;
};
template <typename T>
struct Arithmetic<T, std::enable_if_t<std::is_integral_v<T>>> {
    using type = unsigned long long;
};

template <typename T>
T sum(T a, T b) {
    using Wide = typename Arithmetic<T>::type;
    return static_cast<T>(static_cast<Wide>(a) + static_cast<Wide>(b));
}

template <typename T>
T difference(T a, T b) {
    using Wide = typename Arithmetic<T>::type;
    return static_cast<T>(static_cast<Wide>(a) - static_cast<Wide>(b));
}

} // namespace

template <typename T, int Type>
NV_number<T, Type>::NV_number(NV_container* parent, unsigned short id, T initial, const char* name)
    : NV_item(parent, id, name), value_(initial), default_value_(initial) {}

template <typename T, int Type>
int NV_number<T, Type>::get_type() const {
    return Type;
}

// ---- The value ----

template <typename T, int Type>
void NV_number<T, Type>::_get_range(T& low, T& high) const {
    if constexpr (std::is_same_v<T, char>) {
        low = static_cast<char>(0);
        high = static_cast<char>(255);
    } else {
        low = std::numeric_limits<T>::min();
        high = std::numeric_limits<T>::max();
    }
}

template <typename T, int Type>
void NV_number<T, Type>::get_range(T& low, T& high) const {
    const NV_lock guard(*this);
    _get_range(low, high);
}

template <typename T, int Type>
T NV_number<T, Type>::get() const {
    const NV_lock guard(*this);
    return value_;
}

template <typename T, int Type>
bool NV_number<T, Type>::_set(T value) {
    const bool changed = !(value == value_);
    value_ = value;
    return changed;
}

template <typename T, int Type>
bool NV_number<T, Type>::_set(T value, notify_t how) {
    const bool changed = _set(value);
    if (how != notify_none)
        notify_updated(changed, how);
    return changed;
}

template <typename T, int Type>
bool NV_number<T, Type>::set(T value) {
    const NV_lock guard(*this);
    return _set(value, notify_all);
}

/// The other node as a number of this kind; null when it is of another kind. Numbers of type 17 may differ in T.
template <typename T, int Type>
const NV_number<T, Type>* NV_number<T, Type>::same_kind(const NV_item& other) const {
    return other.get_type() == get_type() ? dynamic_cast<const NV_number*>(&other) : nullptr;
}

template <typename T, int Type>
bool NV_number<T, Type>::_set(const NV_item& other, notify_t how) {
    const NV_number* const number = same_kind(other);
    return number && _set(number->_get(), how);
}

/// A number of another tree is read under that tree's lock, which is released before this tree's is acquired.
template <typename T, int Type>
bool NV_number<T, Type>::set(const NV_item& other) {
    const NV_number* const number = same_kind(other);
    if (!number)
        return false;
    if (number->_get_root() != _get_root())
        return set(number->get());
    const NV_lock guard(*this);
    return _set(*number, notify_all);
}

// NOLINTBEGIN(misc-unconventional-assign-operator): returns the value, as a number would
template <typename T, int Type>
T NV_number<T, Type>::operator=(T value) {
    const NV_lock guard(*this);
    _set(value, notify_all);
    return value_;
}
// NOLINTEND(misc-unconventional-assign-operator)

template <typename T, int Type>
NV_number<T, Type>& NV_number<T, Type>::operator=(const NV_number& other) {
    if (this != &other)
        set(other);
    return *this;
}

template <typename T, int Type>
bool NV_number<T, Type>::operator==(const NV_number& other) const {
    return get() == other.get();
}

template <typename T, int Type>
bool NV_number<T, Type>::operator==(T value) const {
    return get() == value;
}

template <typename T, int Type>
bool NV_number<T, Type>::operator==(const char* text) const {
    T value{};
    return Data_item_destringify<T>::from_string(text, value) && value == value_;
}

template <typename T, int Type>
T NV_number<T, Type>::operator+=(T value) {
    const NV_lock guard(*this);
    _set(sum(_get(), value), notify_all);
    return _get();
}

template <typename T, int Type>
T NV_number<T, Type>::operator-=(T value) {
    const NV_lock guard(*this);
    _set(difference(_get(), value), notify_all);
    return _get();
}

template <typename T, int Type>
T NV_number<T, Type>::operator++(int) {
    const NV_lock guard(*this);
    const T before = _get();
    _set(sum(before, static_cast<T>(1)), notify_all);
    return before;
}

template <typename T, int Type>
T NV_number<T, Type>::operator-(NV_number& other) const {
    return difference(get(), other.get());
}

template <typename T, int Type>
bool NV_number<T, Type>::set_default(bool) {
    _set(default_value_, notify_all);
    return true;
}

// ---- Text ----

template <typename T, int Type>
int NV_number<T, Type>::_to_string(char* buf, int len) const {
    return Data_item_stringify<T>::to_string(value_, buf, len);
}

template <typename T, int Type>
const char* NV_number<T, Type>::_from_string(const char* text) {
    T value{};
    const char* const end = Data_item_destringify<T>::from_string(text, value);
    if (end)
        _set(value, notify_all);
    return end;
}

template <typename T, int Type>
void NV_number<T, Type>::_print(Debug::Dumper& dumper, const char* name) const {
    char text[32] = "";
    _to_string(text, sizeof text);
    dumper.print_field(name, text);
}

// ---- Saving and loading ----

template <typename T, int Type>
bool NV_number<T, Type>::serialise(NV_iterator* it) {
    bool ok = false;
    if (!include_in_serialise(it, ok, false))
        return ok;
    if (!Record_header{own_type_byte(), Record_header::value, get_id()}.push(it) || !Codec<T>::push(it, value_))
        return false;
    clear_dirty();
    return true;
}

template <typename T, int Type>
bool NV_number<T, Type>::deserialise(NV_iterator* it) {
    // The last argument of both messages distinguishes them.
    Record_header header;
    const bool read = header.pop(it);
    if (!read || header.id != get_id() || header.type_byte != own_type_byte()) {
        Debug::Print::dprint("Number fail %s %d != %d || %d != %d %d\n", get_name(), header.id, get_id(),
                             header.type_byte, own_type_byte(), 424);
        return false;
    }
    if (header.kind != Record_header::value) {
        Debug::Print::dprint("Number fail %d\n", 444);
        return false;
    }
    if (!Codec<T>::pop(it, value_))
        return false;
    clear_pristine();
    return true;
}

template <typename T, int Type>
bool NV_number<T, Type>::deserialise_unknown(NV_iterator* it) {
    Record_header header;
    T value{};
    return header.pop(it) && header.kind == Record_header::value && Codec<T>::pop(it, value);
}

template <typename T, int Type>
bool NV_number<T, Type>::deserialise_unknown_array(NV_iterator* it, DTS::Defs::Storage_class storage_class) {
    Record_header header;
    unsigned count = 0;
    if (!header.pop(it) || header.kind != Record_header::value || !it->pop_array_size(storage_class, count))
        return false;
    T value{};
    while (count > 0 && Codec<T>::pop(it, value))
        --count;
    return count == 0;
}

// ---- Values for a peer ----

template <typename T, int Type>
bool NV_number<T, Type>::raw_serialise(Send_buffer& buffer, T value) {
    return Codec<T>::append(buffer, value) == static_cast<int>(sizeof(T));
}

template <typename T, int Type>
bool NV_number<T, Type>::raw_deserialise(Receive_buffer& buffer, T& value) {
    return Codec<T>::pop(buffer, value) == static_cast<int>(sizeof(T));
}

template <typename T, int Type>
Data_item::Serial_ret NV_number<T, Type>::serialise(Send_buffer& buffer, unsigned short& counter) {
    return serial_action_started(counter) ? serial_check(raw_serialise(buffer, value_)) : serial_ok();
}

template <typename T, int Type>
Data_item::Serial_ret NV_number<T, Type>::deserialise(Receive_buffer& buffer, unsigned short& counter) {
    if (!serial_action_started(counter))
        return serial_ok();
    T value{};
    const bool received = raw_deserialise(buffer, value);
    if (received)
        _set(value, notify_all);
    return serial_check(received);
}

#define INSTANTIATE(T, Type) template class NV_number<T, Type>;
GLUE_NV_NUMBERS(INSTANTIATE)
#undef INSTANTIATE

namespace {

/// How to skip a single number of a type, and an array.
struct Skipper {
    bool (*single)(NV_iterator*);
    bool (*array)(NV_iterator*, DTS::Defs::Storage_class);
};

template <typename Number>
constexpr Skipper skipper = {Number::deserialise_unknown, Number::deserialise_unknown_array};

/// Types 2 to 11, in that order.
constexpr Skipper small_skippers[] = {
    skipper<NV_number<bool, 2>>,           skipper<NV_number<char, 3>>,         skipper<NV_number<unsigned char, 4>>,
    skipper<NV_number<unsigned short, 5>>, skipper<NV_number<unsigned int, 6>>, skipper<NV_number<signed char, 7>>,
    skipper<NV_number<short, 8>>,          skipper<NV_number<int, 9>>,          skipper<NV_number<float, 10>>,
    skipper<NV_number<double, 11>>,
};

} // namespace

bool skip_unknown_number(NV_iterator* it, DTS::Defs::Storage_class storage_class, int type) {
    const bool is_single = storage_class == DTS::Defs::single;
    if (type >= DTS::Defs::type_bool && type <= DTS::Defs::type_double) {
        const Skipper& skip = small_skippers[type - DTS::Defs::type_bool];
        return is_single ? skip.single(it) : skip.array(it, storage_class);
    }
    if (is_single && type == DTS::Defs::type_uint64)
        return NV_number<unsigned long long, 15>::deserialise_unknown(it);
    if (is_single && type == DTS::Defs::type_int64)
        return NV_number<long long, 16>::deserialise_unknown(it);
    return false;
}

} // namespace NV_store
