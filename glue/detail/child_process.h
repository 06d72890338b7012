#pragma once

namespace glue_detail {

/// A program that runs with its standard input and output on pipes.
struct Child_process {
    int pid;        ///< -1 when it could not be started; there are no pipes then
    int from_child; ///< what it prints; blocking
    int to_child;   ///< what it reads; non-blocking, at the child's end too
};

/// Starts `argv[0]`, which is there, with `envp`, or with the parent's environment when that is null. Of the parent's
/// descriptors it inherits 0, 1 and 2 alone, the first two replaced by the pipes.
///
/// A child that cannot become the program says why through the debug printer, when `debug_category` is on, and ends
/// with status 1.
Child_process start_child(const char* const* argv, const char* const* envp, unsigned debug_category);

/// Whether `pid` is a child that nobody has waited for yet, ended or not.
bool is_unreaped_child(int pid);

/// Waits until the child has ended, signals or not, and reaps it.
/// \return false, with the reason in `errno`, when there is no such child
bool reap_child(int pid);

} // namespace glue_detail
