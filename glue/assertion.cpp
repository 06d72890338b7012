#include "assertion.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace glue_detail {

namespace {

const char* from_glue_on(const char* path) {
    const auto position = std::string_view(path).rfind("glue/");
    return position == std::string_view::npos ? path : path + position;
}

} // namespace

void assertion_failed(const char* condition, const char* file, int line, const char* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", from_glue_on(file), line, function, condition);
    std::abort();
}

} // namespace glue_detail
