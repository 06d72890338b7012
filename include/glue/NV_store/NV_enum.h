#pragma once

#include <glue/NV_store/NV_enum_base.h>

#include <platform/Data_item_text.h>

#include <type_traits>

namespace NV_store {

/// A setting of an application's enumeration type, of at most 32 bits. An addition of ours. It accepts every number,
/// also one without an enumerator: a program checks loaded values itself.
///
///     enum class Format { labelled, comma };
///     NV_store::NV_enum<Format> format{this, 3, Format::labelled, "format"};
///
/// A peer receives four bytes. The text is the number. Stored values and texts have no sign: an enumerator of -1 is
/// 4294967295 there, and -1 again when it is read.
template <typename Enum>
class NV_enum : public NV_enum_base {
    static_assert(std::is_enum_v<Enum> && sizeof(Enum) <= sizeof(unsigned int), "records keep 32 bits of a value");

  public:
    NV_enum(NV_container* parent, unsigned short id, Enum initial, const char* name)
        : NV_enum_base(parent, id, name), value_(initial), default_value_(initial) {}

    using NV_enum_base::deserialise;
    using NV_enum_base::serialise;

    int get_type() const override { return DTS::Defs::type_uint32; }
    [[nodiscard]] bool serialise(NV_iterator* it) override { return NV_enum_base::serialise(it, number()); }
    bool deserialise(NV_iterator* it) override {
        unsigned int stored = 0;
        const bool loaded = NV_enum_base::deserialise(it, stored);
        if (loaded)
            value_ = static_cast<Enum>(stored);
        return loaded;
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
        std::uint32_t raw = 0;
        const bool received = buffer.pop_UINT32(raw) > 0;
        if (received)
            _set(static_cast<Enum>(raw), notify_all);
        return serial_check(received);
    }
    int _to_string(char* buf, int len) const override {
        return Data_item_stringify<unsigned int>::to_string(number(), buf, len);
    }
    const char* _from_string(const char* text) override {
        unsigned int raw = 0;
        const char* const end = Data_item_destringify<unsigned int>::from_string(text, raw);
        if (end)
            _set(static_cast<Enum>(raw), notify_all);
        return end;
    }
    void _print(Debug::Dumper& dumper, const char* name) const override {
        char text[16] = "";
        _to_string(text, sizeof text);
        dumper.print_field(name, text);
    }

    /// The value, under the lock.
    Enum value() const {
        const NV_lock guard(*this);
        return value_;
    }
    /// Sets the value under the lock; notifies parents and waiters when it differs. \return whether it differs
    bool set(Enum value) {
        const NV_lock guard(*this);
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
