#pragma once

#include <platform/Data_item.h>
#include <platform/NV_iterator.h>

#include <cstdint>

namespace NV_store {

/// What stands in front of everything that is stored.
struct Record_header {
    /// What follows it.
    enum Kind : unsigned char { opening = 1, closing = 2, value = 9, path = 12 };

    unsigned char type_byte = 0;
    unsigned char kind = 0;
    unsigned short id = 0;

    static Record_header unpacked(std::uint32_t word) {
        return {static_cast<unsigned char>(word >> 24), static_cast<unsigned char>(word >> 16),
                static_cast<unsigned short>(word)};
    }
    std::uint32_t packed() const { return std::uint32_t{type_byte} << 24 | std::uint32_t{kind} << 16 | id; }

    bool operator==(const Record_header& other) const { return packed() == other.packed(); }

    bool push(NV_iterator* it) const { return it->push_header(packed()); }
    bool pop(NV_iterator* it) {
        std::uint32_t word = 0;
        const bool there = it->pop_header(word);
        if (there)
            *this = unpacked(word);
        return there;
    }
    bool peek(NV_iterator* it) {
        std::uint32_t word = 0;
        const bool there = it->peek_header(word);
        if (there)
            *this = unpacked(word);
        return there;
    }
    /// Peeks, and takes the type byte apart.
    bool peek(NV_iterator* it, int& dimension, int& type) {
        const bool there = peek(it);
        if (there)
            Data_item::decode_type_byte(type_byte, dimension, type);
        return there;
    }
};

/// How settings are written.
constexpr NV_iterator::Options record_options = NV_iterator::little_endian;

/// Whether a type code is a container's.
constexpr bool is_container_type(int type) {
    return type == DTS::Defs::type_root || type == DTS::Defs::type_struct || type == DTS::Defs::type_list;
}

/// A checksum that is registered with an iterator from its construction until `remove`, or until its end.
class Registered_checksum : public NV_iterator::NV_checksum {
  public:
    explicit Registered_checksum(NV_iterator* it) : it_(it) { it_->add_checksum_getter(this); }
    ~Registered_checksum() { remove(); }
    Registered_checksum(const Registered_checksum&) = delete;
    Registered_checksum& operator=(const Registered_checksum&) = delete;

    void remove() {
        if (it_)
            it_->remove_checksum_getter(this);
        it_ = nullptr;
    }

  private:
    NV_iterator* it_;
};

} // namespace NV_store
