#pragma once

/// Ends the process when `condition` is false, in every build: a machine must not be steered by a broken build or a
/// broken caller. Prints the source path from "glue/" on, the line, the function and the failed condition.
#define GLUE_ASSERT(condition)                                                                                         \
    ((condition) ? static_cast<void>(0)                                                                                \
                 : ::glue_detail::assertion_failed(#condition, __FILE__, __LINE__, __PRETTY_FUNCTION__))

namespace glue_detail {

[[noreturn]] void assertion_failed(const char* condition, const char* file, int line, const char* function);

} // namespace glue_detail
