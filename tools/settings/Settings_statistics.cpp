#include "Settings_statistics.h"

#include <algorithm>
#include <cinttypes>

void Settings_statistics::container_begins(const Record& record) {
    count(record);
    depth_ = std::max(depth_, record.depth + 1);
}

void Settings_statistics::value(const Record& record, const Stored_value&) {
    count(record);
}

void Settings_statistics::pointer(const Record& record, const Id_path&) {
    count(record);
}

void Settings_statistics::container_ends(const Record& container, const Container_end&) {
    add_bytes(container.type, Container_end::size);
}

void Settings_statistics::count(const Record& record) {
    if (record.depth == 0)
        ++saves_;
    ++total_.records;
    ++by_type_[record.type].records;
    add_bytes(record.type, record.size);
}

void Settings_statistics::add_bytes(int type, std::uint64_t bytes) {
    total_.bytes += bytes;
    by_type_[type].bytes += bytes;
}

void Settings_statistics::print(std::FILE* out) const {
    std::fprintf(out, "bytes       %10" PRIu64 "\n", bytes());
    std::fprintf(out, "records     %10" PRIu64 "\n", records());
    std::fprintf(out, "depth       %10zu\n", depth_);
    std::fprintf(out, "saves       %10" PRIu64 "\n", saves_);
    std::fprintf(out, "incremental %10" PRIu64 "\n", saves_ > 0 ? saves_ - 1 : 0);
    std::fprintf(out, "\n%-11s %10s %10s\n", "type", "records", "bytes");
    for (const auto& [type, share] : by_type_)
        std::fprintf(out, "%-11s %10" PRIu64 " %10" PRIu64 "\n", type_name(type), share.records, share.bytes);
}
