#include "Settings_check.h"

#include "record_text.h"

void Settings_check::container_begins(const Record& record) {
    if (record.depth == 0)
        ++saves_;
}

void Settings_check::value(const Record& record, const Stored_value&) {
    count_unprotected(record);
}

void Settings_check::pointer(const Record& record, const Id_path&) {
    count_unprotected(record);
}

void Settings_check::count_unprotected(const Record& record) {
    if (record.depth > 0)
        return;
    ++saves_;
    ++unprotected_;
}

void Settings_check::container_ends(const Record& container, const Container_end& end) {
    if (first_fault_ || end.is_good())
        return;
    first_fault_ = {end.checksum_offset, checksum_text(end) + ", of the container with id " +
                                             std::to_string(container.id) + " that began at offset " +
                                             std::to_string(container.offset)};
}

void Settings_check::fault(const Fault& fault) {
    if (!first_fault_)
        first_fault_ = fault;
}
