#pragma once

namespace glue_detail {

/// A program that runs with its standard input and output on pipes.
struct Child_process {
    int pid;        ///< -1 when it could not be started; then there are no pipes
    int from_child; ///< its standard output; blocking
    int to_child;   ///< its standard input; both ends are non-blocking
};

/// Starts the program `argv[0]`, which must not be null, with the environment `envp`, or the parent's when that is
/// null. The child inherits the descriptors 0, 1 and 2 only; pipes replace 0 and 1.
///
/// A child that cannot become the program reports the reason through the debug printer, when `debug_category` is on,
/// and ends with status 1.
Child_process start_child(const char* const* argv, const char* const* envp, unsigned debug_category);

/// Whether `pid` is a child, running or ended, that has not been reaped.
bool is_unreaped_child(int pid);

/// Waits until the child has ended, also when signals interrupt the wait, and reaps it.
/// \return false, with the reason in `errno`, when there is no such child
bool reap_child(int pid);

} // namespace glue_detail
