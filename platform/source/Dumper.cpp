#include <platform/Dumper.h>

#include <platform/Debug.h>

namespace Debug {

namespace {

constexpr int blanks_per_group = 2;

} // namespace

void Print_dumper::print_field(const char* name, const char* text) {
    Print::dprint("%*s%s: %s\n", depth_ * blanks_per_group, "", name, text);
}

void Print_dumper::begin_group(const char* name) {
    Print::dprint("%*s%s:\n", depth_ * blanks_per_group, "", name);
    ++depth_;
}

void Print_dumper::end_group() {
    if (depth_ > 0)
        --depth_;
}

} // namespace Debug
