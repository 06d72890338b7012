#include "Link_summary.h"

#include <algorithm>
#include <cinttypes>

void Link_summary::count_frame(int identifier) {
    ++good_frames_;
    count(identifier);
}

void Link_summary::count(int identifier) {
    const auto found = std::find_if(messages_.begin(), messages_.end(),
                                    [=](const Message_count& message) { return message.identifier == identifier; });
    if (found == messages_.end())
        messages_.push_back({identifier, 1});
    else
        ++found->count;
}

void Link_summary::print(std::FILE* out, std::uint64_t arrived, const Vesk_parser::Byte_counts& bytes,
                         double seconds) const {
    for (const Message_count& message : messages_) {
        std::fprintf(out, "%c%c %10" PRIu64, message.identifier & 0xFF, message.identifier >> 8, message.count);
        if (seconds > 0)
            std::fprintf(out, " %10.1f/s", static_cast<double>(message.count) / seconds);
        std::fputc('\n', out);
    }
    std::fprintf(out,
                 "bytes: %" PRIu64 " = frames %" PRIu64 " + replies %" PRIu64 " + acknowledgements %" PRIu64
                 " + noise %" PRIu64 " + separators %" PRIu64 "\n",
                 arrived, bytes.frames, bytes.replies, bytes.acknowledgements, bytes.noise, bytes.separators);
    std::fprintf(out, "checksum failures: %" PRIu64 "\n", checksum_failures_);
}
