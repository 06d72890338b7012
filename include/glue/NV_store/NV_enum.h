#pragma once

#include <glue/NV_store/NV_enum_base.h>

#include <platform/Data_item_text.h>

#include <type_traits>

namespace NV_store {

/// A setting of an enumeration type of the application's, of at most 32 bits. An addition of ours; it keeps whatever
/// number it is given, also one that no enumerator has.
///
///     enum class Format { labelled, comma };
///     NV_store::NV_enum<Format> format{this, 3, Format::labelled, "format"};
///
/// A peer is sent four bytes. The text is the number, stored values and texts being those without a sign: an enumerator
/// of -1 is 4294967295 there, and -1 again when it is read.
template <typename Enum>
class NV_enum : public NV_enum_base {
    static_assert(std::is_enum_v<Enum> && sizeof(Enum) <= sizeof(unsigned int), "records keep 32 bits of a value");

  public:
    NV_enum(NV_container* parent, unsigned short id, Enum initial, const char* name)
        : NV_enum_base(parent, id, name), value_(initial), default_value_(initial) {}

    using NV_enum_base::deserialise;
    using NV_enum_base::serialise;

    int get_type() const override { return DTS::Defs::type_uint32; }
    bool serialise(NV_iterator* it) override { return NV_enum_base::serialise(it, number()); }
    bool deserialise(NV_iterator* it) override {
        unsigned int stored = 0;
        const bool there = NV_enum_base::deserialise(it, stored);
        if (there)
            value_ = static_cast<Enum>(stored);
        return there;
    }
    bool set_default(bool) override {
        _set(default_value_, notify_all);
        return true;
    }
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override {
        return serial_action_started(counter) ? serial_check(buffer.append_UINT32(number()) > 0) : serial_ok();
    }
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override {
        if (!serial_action_started(counter))
            return serial_ok();
        std::uint32_t received = 0;
        const bool there = buffer.pop_UINT32(received) > 0;
        if (there)
            _set(static_cast<Enum>(received), notify_all);
        return serial_check(there);
    }
    int _to_string(char* buf, int len) const override {
        return Data_item_stringify<unsigned int>::to_string(number(), buf, len);
    }
    const char* _from_string(const char* text) override {
        unsigned int read = 0;
        const char* const end = Data_item_destringify<unsigned int>::from_string(text, read);
        if (end)
            _set(static_cast<Enum>(read), notify_all);
        return end;
    }
    void _print(Debug::Dumper& dumper, const char* name) const override {
        char text[16] = "";
        _to_string(text, sizeof text);
        dumper.print_field(name, text);
    }

    /// The value, under the lock.
    Enum value() const {
        const NV_lock held(*this);
        return value_;
    }
    /// Sets it under the lock and tells parents and waiters when it is another one. \return whether it is
    bool set(Enum value) {
        const NV_lock held(*this);
        return _set(value, notify_all);
    }
    bool _set(Enum value, notify_t how) {
        const bool changed = value != value_;
        value_ = value;
        if (how != notify_none)
            notify_updated(changed, how);
        return changed;
    }

  protected:
    long long get_value() const override { return static_cast<long long>(value()); }
    void set_value(long long value) override { set(static_cast<Enum>(value)); }

  private:
    unsigned int number() const { return static_cast<unsigned int>(value_); }

    Enum value_;
    Enum default_value_;
};

} // namespace NV_store
