#include "detail/assertion.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace glue_detail {

namespace {

/// A source's path as the message shows it, in two pieces: "glue/<subsystem>" and "/<file>". The folders between them
/// are omitted on purpose: the file names the class, and the message stays the same when a file moves.
struct Shown_path {
    std::string_view subsystem;
    std::string_view file;
};

Shown_path shown_path(std::string_view path) {
    const auto root = path.rfind("glue/");
    const std::string_view shown = root == std::string_view::npos ? path : path.substr(root);
    const auto subsystem_end = shown.find('/', std::strlen("glue/"));
    const auto file_start = shown.rfind('/');
    if (root == std::string_view::npos || subsystem_end == std::string_view::npos)
        return {shown, {}};
    return {shown.substr(0, subsystem_end), shown.substr(file_start)};
}

int length(std::string_view text) {
    return static_cast<int>(text.size());
}

} // namespace

void assertion_failed(const char* condition, const char* file, int line, const char* function) {
    const auto [subsystem, name] = shown_path(file);
    std::fprintf(stderr, "%.*s%.*s:%d: %s: Assertion `%s' failed.\n", length(subsystem), subsystem.data(), length(name),
                 name.data(), line, function, condition);
    std::abort();
}

} // namespace glue_detail
