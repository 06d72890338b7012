#include "Record_walker.h"

#include "record_text.h"

#include <glue/NV_store/NV_record.h>

#include <algorithm>

using DTS::Defs;
using NV_store::Record_header;
using NV_store::record_options;

namespace {

std::string quantity(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

Record_walker::Bytes::Bytes(std::vector<unsigned char>& bytes)
    : NV_buffer_iterator(bytes.data(), static_cast<int>(bytes.size()), static_cast<int>(bytes.size())) {}

bool Record_walker::Bytes::pop_bytes(unsigned char* bytes, int count) {
    if (!NV_buffer_iterator::pop_bytes(bytes, count))
        return false;
    checksum_.add(bytes, count);
    return true;
}

Record_walker::Record_walker(std::vector<unsigned char>& bytes) : it_(bytes), size_(bytes.size()) {}

bool Record_walker::walk(Record_visitor& visitor) {
    visitor_ = &visitor;
    if (size_ == 0)
        return fails(0, "the file is empty");
    while (!is_at_end())
        if (!read_record())
            return false;
    return open_.empty() || ends_early();
}

bool Record_walker::read_record() {
    const Running_checksum::Mark begin = it_.checksum().mark();
    Record_header header;
    if (!header.pop(&it_))
        return open_.empty() ? fails(begin.position, quantity(size_ - begin.position, "byte") +
                                                         " after the last record, too few for another one")
                             : ends_early();
    Record record;
    record.offset = begin.position;
    record.size = position() - record.offset;
    record.depth = open_.size();
    record.id = header.id;
    Data_item::decode_type_byte(header.type_byte, record.dimension, record.type);
    switch (header.kind) {
    case Record_header::opening:
        return begin_container(record, begin);
    case Record_header::closing:
        return end_container(record);
    case Record_header::value:
        return read_value(record);
    case Record_header::path:
        return read_pointer(record);
    default:
        return fails(record.offset, "not a record: kind " + std::to_string(header.kind) +
                                        " is neither 1 (container), 2 (its end), 9 (value) nor 12 (pointer)");
    }
}

bool Record_walker::begin_container(const Record& record, const Running_checksum::Mark& begin) {
    if (record.dimension != Defs::single || !NV_store::is_container_type(record.type))
        return fails(record.offset, "a container of " + type_text(record) + ", which is not a container type");
    open_.push_back({record, begin});
    visitor_->container_begins(record);
    return true;
}

bool Record_walker::end_container(const Record& record) {
    if (open_.empty())
        return fails(record.offset, "the end of a container that never began");
    const Container& container = open_.back();
    if (record.id != container.record.id || record.type != container.record.type ||
        record.dimension != container.record.dimension)
        return fails(record.offset, "the end of a container with id " + std::to_string(record.id) + " and " +
                                        type_text(record) + ", but the one that began at offset " +
                                        std::to_string(container.record.offset) + " has id " +
                                        std::to_string(container.record.id) + " and " + type_text(container.record));
    Container_end end;
    end.computed = it_.checksum().since(container.begin);
    end.checksum_offset = position();
    if (!it_.pop_uint32(end.stored, record_options))
        return ends_early();
    const Record ended = container.record;
    open_.pop_back();
    visitor_->container_ends(ended, end);
    return true;
}

bool Record_walker::read_value(Record record) {
    if (record.type == Defs::type_special_number && record.dimension == Defs::single)
        return fails(record.offset, "a special number (type 17): only the program that wrote it knows how long it is");
    const bool is_known = record.dimension == Defs::single
                              ? is_number(record.type)
                              : record.dimension <= Defs::matrix && has_arrays(record.type);
    if (!is_known)
        return fails(record.offset, "a value of " + type_text(record) + ", which has no values");
    Stored_value value;
    if (!read_value_sizes(record, value))
        return ends_early();
    value.numbers.resize(std::size_t{value.rows} * value.columns);
    if (!std::all_of(value.numbers.begin(), value.numbers.end(),
                     [&](std::string& number) { return read_number(it_, record.type, number); }))
        return ends_early();
    record.size = position() - record.offset;
    visitor_->value(record, value);
    return true;
}

bool Record_walker::read_value_sizes(const Record& record, Stored_value& value) {
    std::uint8_t rows = 1;
    std::uint8_t columns = 1;
    if (record.dimension >= Defs::array && !it_.pop_uint8(rows, record_options))
        return false;
    if (record.dimension == Defs::matrix && !it_.pop_uint8(columns, record_options))
        return false;
    value.rows = rows;
    value.columns = columns;
    return true;
}

bool Record_walker::read_pointer(Record record) {
    if (record.dimension != Defs::single || record.type != Defs::type_pointer)
        return fails(record.offset, "a pointer of " + type_text(record) + ", which is not a pointer type");
    std::uint8_t count = 0;
    if (!it_.pop_uint8(count, record_options))
        return ends_early();
    Id_path target(count);
    for (unsigned short& id : target)
        if (!it_.pop_uint16(id, record_options))
            return ends_early();
    std::reverse(target.begin(), target.end()); // the target's own id is stored first
    record.size = position() - record.offset;
    visitor_->pointer(record, target);
    return true;
}

bool Record_walker::ends_early() {
    std::string what = "the file ends within a record";
    if (!open_.empty())
        what += ", and within the container " + std::to_string(open_.back().record.id) + " that began at offset " +
                std::to_string(open_.back().record.offset);
    return fails(size_, what);
}

bool Record_walker::fails(std::size_t offset, const std::string& what) {
    visitor_->fault({offset, what});
    return false;
}
