// From `fork` to `exec` the child is a copy of one thread of a program that may have many: a lock that another thread
// held at that moment is never released in the child. Until `exec` the child therefore only makes system calls and
// allocates nothing. Only after a failure it uses standard error and the debug printer; `fork` waits until their locks,
// and those of the allocator, are free.

#include "detail/child_process.h"

#include "detail/descriptors.h"

#include <platform/Debug.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace glue_detail {

namespace {

constexpr int exit_status_of_failed_start = 1;

struct Pipe {
    int read_end = -1;
    int write_end = -1;
};

void close_both(const Pipe& pipe) {
    close_if_open(pipe.read_end);
    close_if_open(pipe.write_end);
}

/// A pipe above the standard descriptors, which programs that other threads start do not inherit.
bool make_pipe(Pipe& pipe) {
    int ends[2];
    if (::pipe(ends) != 0)
        return false;
    pipe.read_end = above_standard(ends[0]);
    pipe.write_end = above_standard(ends[1]);
    if (pipe.read_end < 0 || pipe.write_end < 0) {
        close_both(pipe);
        return false;
    }
    close_on_exec(pipe.read_end);
    close_on_exec(pipe.write_end);
    return true;
}

bool make_pipes(Pipe& to_child, Pipe& from_child) {
    if (!make_pipe(to_child))
        return false;
    if (make_pipe(from_child))
        return true;
    close_both(to_child);
    return false;
}

// ---- In the child ----

/// Converts the name of an entry of /proc/self/fd; 0 for "." and "..".
int as_number(const char* name) {
    int number = 0;
    for (; *name >= '0' && *name <= '9'; ++name)
        number = number * 10 + (*name - '0');
    return number;
}

/// Marks every descriptor in one block of directory entries.
void close_on_exec_all_of(const char* entries, long size) {
    for (long at = 0; at < size;) {
        const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
        const int fd = as_number(entry->d_name);
        if (fd > STDERR_FILENO)
            close_on_exec(fd);
        at += entry->d_reclen;
    }
}

/// Makes the program inherit no descriptor except the standard ones.
/// \return false, with the reason in `errno`, when they cannot be listed
bool close_on_exec_above_standard() {
    const int folder = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (folder < 0)
        return false;
    alignas(dirent64) char entries[4096];
    ssize_t size = 0;
    while ((size = getdents64(folder, entries, sizeof entries)) > 0)
        close_on_exec_all_of(entries, size);
    ::close(folder);
    return size == 0;
}

void report_failed_exec(const char* const* argv) {
    Debug::Print::dprint("popen2 (Process_data_stream): %s\n", std::strerror(errno));
    for (int i = 0; argv[i]; ++i)
        Debug::Print::dprint("arg[%d]: '%s'\n", i, argv[i]);
}

/// Ends with `_exit`: the handlers of `exit` and the buffered standard output belong to the parent.
[[noreturn]] void become_program(const Pipe& input, const Pipe& output, const char* const* argv,
                                 const char* const* envp, Debug::Enable_token report) {
    if (!close_on_exec_above_standard()) {
        std::perror("");
        _exit(exit_status_of_failed_start);
    }
    ::close(input.write_end);
    dup2(input.read_end, STDIN_FILENO);
    ::close(output.read_end);
    dup2(output.write_end, STDOUT_FILENO);
    execvpe(argv[0], const_cast<char* const*>(argv), const_cast<char* const*>(envp));
    if (report)
        report_failed_exec(argv);
    _exit(exit_status_of_failed_start);
}

} // namespace

Child_process start_child(const char* const* argv, const char* const* envp, unsigned debug_category) {
    constexpr Child_process none{-1, -1, -1};
    Pipe input;
    Pipe output;
    if (!make_pipes(input, output))
        return none;
    // The writer must not wait for a child that does not read. The reader calls `select` before each read, so its end
    // may block. The child's end of the input is non-blocking on purpose.
    make_non_blocking(input.write_end);
    make_non_blocking(input.read_end);

    const char* const* const environment = envp ? envp : environ;
    const Debug::Enable_token report = Debug::Print::enabled(debug_category);
    const pid_t pid = fork();
    if (pid == 0)
        become_program(input, output, argv, environment, report);
    if (pid < 0) {
        close_both(input);
        close_both(output);
        return none;
    }
    ::close(input.read_end);
    ::close(output.write_end);
    return {pid, output.read_end, input.write_end};
}

bool is_unreaped_child(int pid) {
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool reap_child(int pid) {
    pid_t reaped = 0;
    do
        reaped = waitpid(pid, nullptr, 0);
    while (reaped < 0 && errno == EINTR);
    return reaped == pid;
}

} // namespace glue_detail
