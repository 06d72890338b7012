#include "Settings_listing.h"

#include "record_text.h"

#include <algorithm>

void Settings_listing::container_begins(const Record& record) {
    begin_line(record);
    std::fprintf(output_, "container, %s\n", type_text(record).c_str());
}

void Settings_listing::value(const Record& record, const Stored_value& value) {
    begin_line(record);
    std::fprintf(output_, "value, %s: %s\n", type_text(record).c_str(),
                 value_text(record.dimension, record.type, value).c_str());
}

void Settings_listing::pointer(const Record& record, const Id_path& target) {
    begin_line(record);
    std::fprintf(output_, "pointer, %s: %s\n", type_text(record).c_str(), target_text(target).c_str());
}

void Settings_listing::container_ends(const Record& container, const Container_end& end) {
    indent(container.depth);
    std::fprintf(output_, "end of id %d, %s\n", container.id, checksum_text(end).c_str());
    good_ = good_ && end.is_good();
}

void Settings_listing::fault(const Fault& fault) {
    std::fprintf(output_, "stopped at offset %zu: %s\n", fault.offset, fault.what.c_str());
    good_ = false;
}

void Settings_listing::begin_line(const Record& record) {
    if (record.depth == 0) {
        ++saves_;
        std::fprintf(output_, "save %u, at offset %zu%s\n", saves_, record.offset,
                     saves_ > 1 ? ", incremental: its values replace earlier ones" : "");
    }
    indent(record.depth);
    std::fprintf(output_, "id %d  ", record.id);
}

/// Very deep lines are indented no more, but show their level.
void Settings_listing::indent(std::size_t depth) {
    constexpr std::size_t deepest = 20;
    const std::size_t levels = std::min(depth, deepest) + 1;
    std::fprintf(output_, "%*s", static_cast<int>(2 * levels), "");
    if (depth > deepest)
        std::fprintf(output_, "(level %zu) ", depth);
}
