#include "Text_setting.h"

#include <glue/NV_store/NV_record.h>
#include <glue/NV_store/array_size.h>

#include <algorithm>

using NV_store::NV_iterator;
using NV_store::Record_header;
using NV_store::record_options;

Text_setting::Text_setting(NV_store::NV_container* parent, unsigned short id, const char* name)
    : NV_item(parent, id, name) {}

bool Text_setting::set(const std::string& text) {
    if (text.size() > longest)
        return false;
    const bool changed = text != text_;
    text_ = text;
    notify_updated(changed, NV_store::notify_all);
    return true;
}

int Text_setting::get_type() const {
    return DTS::Defs::type_char;
}

int Text_setting::get_dimension() const {
    return DTS::Defs::array;
}

bool Text_setting::set_default(bool) {
    return set("");
}

void Text_setting::_print(Debug::Dumper& dumper, const char* name) const {
    dumper.print_field(name, text_.c_str());
}

// ---- Saving and loading ----

bool Text_setting::serialise(NV_iterator* it) {
    bool ok = false;
    if (!include_in_serialise(it, ok, false))
        return ok;
    const bool written =
        Record_header{own_type_byte(), Record_header::value, get_id()}.push(it) &&
        it->push_uint8(static_cast<std::uint8_t>(text_.size()), record_options) &&
        std::all_of(text_.begin(), text_.end(), [it](char c) { return it->push_char(c, record_options); });
    if (written)
        clear_dirty();
    return written;
}

bool Text_setting::deserialise(NV_iterator* it) {
    Record_header header;
    if (!header.pop(it) || !(header == Record_header{own_type_byte(), Record_header::value, get_id()}))
        return false;
    unsigned size = 0;
    if (!it->pop_array_size(get_dimension(), size))
        return false;
    std::string text(size, '\0');
    if (!std::all_of(text.begin(), text.end(), [it](char& c) { return it->pop_char(c, record_options); }))
        return false;
    text_ = text;
    clear_pristine();
    return true;
}

// ---- Values for a peer ----

Data_item::Serial_ret Text_setting::serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) {
    if (!serial_action_started(counter))
        return serial_ok();
    return serial_check(
        NV_store::set_array_size(buffer, static_cast<unsigned char>(text_.size())) &&
        std::all_of(text_.begin(), text_.end(), [&buffer](char c) { return buffer.append_CHAR(c) > 0; }));
}

Data_item::Serial_ret Text_setting::deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) {
    if (!serial_action_started(counter))
        return serial_ok();
    unsigned char size = 0;
    if (!NV_store::get_array_size(buffer, size))
        return serial_check(false);
    std::string text(size, '\0');
    if (!std::all_of(text.begin(), text.end(), [&buffer](char& c) { return buffer.pop_CHAR(c) > 0; }))
        return serial_check(false);
    return serial_check(set(text));
}
