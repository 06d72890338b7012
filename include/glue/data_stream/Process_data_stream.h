#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <atomic>
#include <memory>
#include <thread>

/// A child program as a stream: written bytes go to its standard input; its standard output is received into the ring,
/// with events. Its standard error is the parent's.
///
///     std::unique_ptr<Data_stream> stream(Process_data_stream::create(modules, "exec:'nmea_source -p 4'", nullptr));
///
/// or, with arguments that are passed on unchanged:
///
///     const char* const arguments[] = {"sh", "-c", "echo \"$0\"", "two  words", nullptr};
///     Process_data_stream stream(&modules, arguments, nullptr);
///
/// A reader thread of the stream ("PDS" and a number) moves the output into the ring while the ring has free space.
/// More output stays in the pipe, and the child waits when the pipe is full, too. While the ring is full and more
/// output waits, the full event repeats, about every millisecond.
///
/// **What the child inherits.** The environment given, or the parent's; the program is searched for on the parent's
/// PATH when its name has no slash. No descriptor of the parent except 0, 1 and 2. Signals as the parent has them:
/// those that the calling thread blocks are blocked, those that the parent ignores (SIGPIPE, often) are ignored.
///
/// On purpose, the child's standard input is non-blocking: a program that treats "no input yet" as an error ends
/// at once (`cat` does). Programs meant for this wait with `poll` or `select`, or make the descriptor blocking first.
/// Its standard output blocks.
///
/// **States.** A stream is *not running* until `run` makes it *running*. The end of the child's output, or an error of
/// the reader thread, makes it *finished*. `join` and `kill` make it *not running* again. When a child closes its
/// output but continues to run, the stream is finished.
///
/// **Ownership.** The caller owns the stream; the stream owns the child. Destroying it kills the child, unless
/// `detach` was called: then the child only loses its input and output. No child is left as a zombie.
///
/// **Threads.** Any thread may read, and any may write, while no thread is inside `run`, `join`, `kill` or the
/// destructor. These wait for the reader thread, so do not call them from the rx callback or with the stream's lock
/// held. Events are sent under the lock. A signal whose handler runs in the reader thread makes the stream finished: an
/// application that handles signals blocks them in the thread that calls `run`, or handles them in another thread.
///
/// Waiting uses `select`, which knows descriptors below FD_SETSIZE (1024): a stream whose pipe gets a higher one is
/// finished at once, and reports the first one on standard error.
class GLUE_EXPORT Process_data_stream : public Pushed_data_stream {
  public:
    /// The debug category of the stream's messages.
    static constexpr unsigned debug_category = 111;

    /// Makes a stream from "exec:" and a command line, and starts the child.
    ///
    /// The command line may be in quotes, single or double. It ends at the first quote inside it, so it cannot
    /// contain quotes. It is split as a shell would split it, with `wordexp`: blanks, backslashes, variables, "~", file
    /// patterns and "$(command)" all have their meaning, with the parent's environment. "exec:" may be anywhere
    /// in the specification string.
    /// \param envp  null-terminated "name=value" texts; null: the parent's environment
    /// \return a stream that the caller owns, not running when the child could not be started; null when there is no
    ///         "exec:" with a command line after it, or, with a message on standard error, when it cannot be split
    [[nodiscard]] static Process_data_stream* create(module_man& modules, const char* spec, const char* const* envp);

    /// \param argv  when not null, `run` is called with it at once; `is_running` and `is_finished` return the outcome
    Process_data_stream(module_man* modules, const char* const* argv, const char* const* envp);

    // Virtual operations: their order is part of the binary interface.

    /// Calls `kill()`, or `join(0)` after `detach()`.
    ~Process_data_stream() override;

    using Data_stream::get_data;
    /// Nothing can be fetched: the reader thread moves the output into the ring.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// One system write to the child's standard input. Never blocks, queues nothing, takes no lock. Up to PIPE_BUF
    /// bytes (4096) are written whole or not at all, also when several threads write.
    /// \return the bytes written, possibly fewer than `len`; -1 when the stream is not running, and for a failed write:
    ///         `errno` is EAGAIN when the pipe is full, EPIPE (without a SIGPIPE) when the child has closed its input
    int _write(const unsigned char* data, unsigned int len) override;

    // ---- The child ----

    /// Starts a program and the thread that reads its output.
    ///
    /// A finished stream must be joined first: on purpose, starting another child before the reader thread is joined
    /// ends the process, through `std::terminate`.
    /// \param argv  null-terminated; the first names the program
    /// \param envp  as for `create`
    /// \return true when child and thread run, also when the program does not exist: a child that cannot become the
    ///         program ends at once. False when a child is running already, for an empty `argv`, and when the system
    ///         has no pipe, process or thread left; then the stream is not running, and no child or descriptor is left
    [[nodiscard]] bool run(const char* const* argv, const char* const* envp);

    /// Whether the child's output is no longer read.
    bool has_ended() override;

    /// Whether the child's output is being read.
    bool is_running() const;
    /// Whether reading has ended. When it ended because the output did, all of it is in the ring.
    bool is_finished() const;

    /// Stops reading, closes the child's input and output, and waits for the child to end. Output that is not in the
    /// ring yet is lost. The child's exit status is not reported.
    /// \param timeout_ms  the time limit; with 0 it checks once; negative: no limit. After the limit, a detached thread
    ///                    ("CWT" and a number) waits for the child.
    /// \return 0; -1 when there is no child to wait for
    int join(int timeout_ms);

    /// Ends the child with SIGKILL, then `join(0)`. Does nothing when the stream is not running.
    void kill();

    /// Lets the child continue when the stream is destroyed, until it ends by itself, for example at the end of its
    /// input.
    void detach();

    /// What the reader thread runs; called by the stream itself.
    static void thread_runner(Process_data_stream* stream);

  private:
    enum State { not_running = 0, running = 1, finished = 2 };

    void move_output();
    int wait_for_output();
    unsigned int free_space();
    bool receive_output(unsigned int free);
    void append_to_ring(const unsigned char* data, unsigned int count);

    bool start_reader();
    void close_pipes();
    void reap_within(int timeout_ms);

    std::unique_ptr<std::thread> reader_;
    Mutex mutex_;
    std::atomic<bool> stop_request_;
    std::atomic<int> state_;
    std::atomic<int> child_pid_;
    std::atomic<int> from_child_;
    std::atomic<int> to_child_;
    std::atomic<bool> kill_on_destroy_;

    // Addition
    std::atomic<bool> high_descriptor_reported_{false};
};
