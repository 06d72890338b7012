#pragma once

#include <platform/Data_item.h>
#include <platform/NV_iterator.h>

#include <cstdint>

namespace NV_store {

/// The header before everything that is stored: what follows, of which type, of which node. An addition of ours, for
/// nodes of an application's own types and for programs that read records without their tree.
///
///     bool Text_setting::deserialise(NV_iterator* it) {
///         Record_header header;
///         if (!header.pop(it) || !(header == Record_header{own_type_byte(), Record_header::value, get_id()}))
///             return false;                            // another node's record, or none
///         ...                                          // the value, with `record_options`
///
/// In a file it is one 32-bit number with the lowest byte first: the id (bits 0 to 15), the kind (16 to 23), the type
/// byte (24 to 31).
struct Record_header {
    /// What follows the header.
    enum Kind : unsigned char {
        opening = 1, ///< the records of a container's children, up to its closing header
        closing = 2, ///< the container's checksum
        value = 9,   ///< a number; for arrays and matrices their sizes, then the numbers
        path = 12    ///< a pointer's path: the number of ids, then the ids
    };

    unsigned char type_byte = 0; ///< dimension and type, see `Data_item::get_type_byte`
    unsigned char kind = 0;      ///< a `Kind`, or what a damaged file has there
    unsigned short id = 0;       ///< of the node

    static Record_header unpacked(std::uint32_t word) {
        return {static_cast<unsigned char>(word >> 24), static_cast<unsigned char>(word >> 16),
                static_cast<unsigned short>(word)};
    }
    std::uint32_t packed() const { return std::uint32_t{type_byte} << 24 | std::uint32_t{kind} << 16 | id; }

    bool operator==(const Record_header& other) const { return packed() == other.packed(); }

    // ---- Writing and reading; false, with the header unchanged, when the iterator failed ----

    bool push(NV_iterator* it) const { return it->push_header(packed()); }
    bool pop(NV_iterator* it) {
        std::uint32_t word = packed();
        const bool is_read = it->pop_header(word);
        *this = unpacked(word);
        return is_read;
    }
    /// Reads the next header, which stays the next one.
    bool peek(NV_iterator* it) {
        std::uint32_t word = packed();
        const bool is_read = it->peek_header(word);
        *this = unpacked(word);
        return is_read;
    }
    /// The same, with the two parts of the type byte.
    bool peek(NV_iterator* it, int& dimension, int& type) {
        if (!peek(it))
            return false;
        Data_item::decode_type_byte(type_byte, dimension, type);
        return true;
    }
};

/// The byte order of all numbers in records.
constexpr NV_iterator::Options record_options = NV_iterator::little_endian;

/// Whether a type code is a container's.
constexpr bool is_container_type(int type) {
    return type == DTS::Defs::type_root || type == DTS::Defs::type_struct || type == DTS::Defs::type_list;
}

} // namespace NV_store
