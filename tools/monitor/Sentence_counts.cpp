#include "Sentence_counts.h"

#include <algorithm>
#include <cinttypes>

void Sentence_counts::count_good(std::string_view kind, std::size_t size) {
    ++good_;
    bytes_ += size;
    const auto found =
        std::find_if(kinds_.begin(), kinds_.end(), [=](const auto& known) { return known.first == kind; });
    if (found == kinds_.end())
        kinds_.emplace_back(kind, 1);
    else
        ++found->second;
}

void Sentence_counts::count_bad(std::size_t size) {
    ++bad_;
    bytes_ += size;
}

void Sentence_counts::print(std::FILE* out) const {
    if (good_ + bad_ == 0)
        return;
    std::fprintf(out, "NMEA sentences: %" PRIu64 " good, %" PRIu64 " bad checksum%s", good_, bad_,
                 bad_ == 1 ? "" : "s");
    const char* separator = ": ";
    for (const auto& [kind, count] : kinds_) {
        std::fprintf(out, "%s%s %" PRIu64, separator, kind.c_str(), count);
        separator = ", ";
    }
    std::fprintf(out, "\n  %" PRIu64 " bytes without their line ends, all of them noise in the account above\n",
                 bytes_);
}
