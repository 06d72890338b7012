#include <glue/NV_store/NV_enum_base.h>

#include <glue/NV_store/NV_record.h>

namespace NV_store {

namespace {

/// The narrowest type that holds a value.
int type_for(unsigned int value) {
    if (value <= 0xFF)
        return DTS::Defs::type_uint8;
    return value <= 0xFFFF ? DTS::Defs::type_uint16 : DTS::Defs::type_uint32;
}

bool push(NV_iterator* it, int type, unsigned int value) {
    switch (type) {
    case DTS::Defs::type_uint8:
        return it->push_uint8(static_cast<std::uint8_t>(value), record_options);
    case DTS::Defs::type_uint16:
        return it->push_uint16(static_cast<std::uint16_t>(value), record_options);
    default:
        return it->push_uint32(value, record_options);
    }
}

/// Pops a number of one width into a variable of another.
template <typename Stored>
bool pop_as(NV_iterator* it, bool (NV_iterator::*pop)(Stored&, NV_iterator::Options), unsigned int& value) {
    Stored stored = 0;
    if (!(it->*pop)(stored, record_options))
        return false;
    value = static_cast<unsigned int>(stored);
    return true;
}

bool pop(NV_iterator* it, int type_byte, unsigned int& value) {
    switch (type_byte) {
    case DTS::Defs::type_uint8:
        return pop_as(it, &NV_iterator::pop_uint8, value);
    case DTS::Defs::type_uint16:
        return pop_as(it, &NV_iterator::pop_uint16, value);
    case DTS::Defs::type_uint32:
        return pop_as(it, &NV_iterator::pop_uint32, value);
    case DTS::Defs::type_uint64: // on purpose truncated to its lower half
        return pop_as(it, &NV_iterator::pop_uint64, value);
    default:
        return false;
    }
}

} // namespace

NV_enum_base::NV_enum_base(NV_container* parent, unsigned short id, const char* name) : NV_item(parent, id, name) {}

bool NV_enum_base::serialise(NV_iterator* it, unsigned int value) {
    bool ok = false;
    if (!include_in_serialise(it, ok, false))
        return ok;
    const int type = type_for(value);
    if (!Record_header{get_type_byte(get_dimension(), type), Record_header::value, get_id()}.push(it) ||
        !push(it, type, value))
        return false;
    clear_dirty();
    return true;
}

bool NV_enum_base::deserialise(NV_iterator* it, unsigned int& value) {
    Record_header header;
    if (!header.pop(it) || header.id != get_id() || header.kind != Record_header::value)
        return false;
    if (!pop(it, header.type_byte, value))
        return false;
    clear_pristine();
    return true;
}

} // namespace NV_store
