#pragma once

/// Ends the process when `condition` is false, in every build: a broken build or a broken caller must not go on
/// steering a machine. Prints the source path from "glue/" on, the line, the function and the failed condition.
#define GLUE_ASSERT(condition)                                                                                         \
    ((condition) ? static_cast<void>(0)                                                                                \
                 : ::glue_detail::assertion_failed(#condition, __FILE__, __LINE__, __PRETTY_FUNCTION__))

namespace glue_detail {

[[noreturn]] void assertion_failed(const char* condition, const char* file, int line, const char* function);

} // namespace glue_detail
