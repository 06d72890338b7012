#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <atomic>
#include <memory>
#include <thread>

/// A child program as a stream: what is written goes to its standard input, what it prints arrives in the receive ring
/// and is announced. Its standard error is the parent's.
///
///     std::unique_ptr<Data_stream> stream(Process_data_stream::create(modules, "exec:'nmea_source -p 4'", nullptr));
///
/// or, with arguments that need no shell's reading:
///
///     const char* const arguments[] = {"sh", "-c", "echo \"$0\"", "two  words", nullptr};
///     Process_data_stream stream(&modules, arguments, nullptr);
///
/// A thread of the stream's own ("PDS" and a number) moves the output into the ring, as far as there is room; beyond
/// that it stays in the pipe, and a child that goes on printing waits. While the ring is full and more output waits,
/// the full event repeats, about every millisecond.
///
/// **What the child finds.** The environment given, or the parent's; the program is looked for on the parent's PATH
/// when its name has no slash. No descriptor of the parent but 0, 1 and 2. Signals as the parent has them: what
/// the calling thread blocks is blocked, what the parent ignores (SIGPIPE, often) is ignored.
///
/// On purpose, the child's standard input is non-blocking: a program that takes "nothing there yet" for an error ends
/// at once (`cat` does). Programs meant for this wait with `poll` or `select`, or make the descriptor blocking first.
/// Its standard output blocks.
///
/// **States.** 0, not running; `run` leads to 1, running; the end of the child's output leads to 2, finished, as does
/// an error of the reader; `join` and `kill` lead back to 0. A child that closes its output is finished, even while it
/// goes on running.
///
/// **Ownership.** The caller owns the stream; the stream owns the child. Destroying it kills the child, unless
/// `detach` was called: then the child merely loses its input and output. No child is left as a zombie.
///
/// **Threads.** Any thread may read, and any write, while no thread is inside `run`, `join`, `kill` or the destructor.
/// These must not be called from the rx callback nor by who holds the stream's lock: they wait for the reader thread.
/// Announcements are made under the lock. A signal whose handler runs in the reader thread ends the reader (state 2):
/// who handles signals blocks them in the thread that calls `run`, or lets some other thread take them.
///
/// Waiting uses `select`, which knows descriptors below FD_SETSIZE (1024): a stream whose pipe gets one above is
/// finished at once.
class GLUE_EXPORT Process_data_stream : public Pushed_data_stream {
  public:
    /// The debug category of everything that the stream says.
    static constexpr unsigned debug_category = 111;

    /// Makes a stream from "exec:" and a command line, and starts the child.
    ///
    /// The command line may stand in quotes, single or double. It ends at the first quote inside it, so it cannot
    /// have quotes of its own. It is split as a shell would, with `wordexp`: blanks, backslashes, variables, "~", file
    /// patterns and "$(command)" all have their meaning, taken from the parent's environment. "exec:" is found
    /// anywhere in the text.
    /// \param envp  null-terminated "name=value" texts; null: the parent's environment
    /// \return a stream that the caller owns, in state 0 when the child could not be started; null when there is no
    ///         "exec:" with something behind it, or, with a message on standard error, when it cannot be split
    static Process_data_stream* create(module_man& modules, const char* spec, const char* const* envp);

    /// \param argv  when not null, what `run` is called with at once; `is_running` and `is_finished` tell the outcome
    Process_data_stream(module_man* modules, const char* const* argv, const char* const* envp);

    // Virtual operations: their order is part of the binary interface.

    /// `kill()`; after `detach()`, `join(0)`.
    ~Process_data_stream() override;

    using Data_stream::get_data;
    /// Output comes by itself: there is never anything to fetch.
    /// \return 1 for an `n` of 0, else 0
    int get_data(int n) override;

    /// One system write to the child's standard input. Never blocks, queues nothing, takes no lock. Up to PIPE_BUF
    /// bytes (4096) go whole or not at all, also where several threads write. \return the bytes that the pipe took,
    /// possibly fewer than `len`; -1 when the stream is not in state 1, and for a
    ///         failed write: `errno` is EAGAIN when the pipe is full, EPIPE (without a SIGPIPE) when the child has
    ///         closed its input
    int _write(const unsigned char* data, unsigned int len) override;

    // ---- The child ----

    /// Starts a program and the thread that reads its output.
    ///
    /// A stream that is finished must be joined before: on purpose, starting another child over a reader thread that
    /// was not joined ends the process, through `std::terminate`.
    /// \param argv  null-terminated; the first names the program
    /// \param envp  as for `create`
    /// \return true when both run, which says nothing of the program's being found: a child that cannot become the
    ///         program ends at once. False when one is running already, for an empty `argv`, and when the system has
    ///         no pipe, process or thread left; state 0 then, with nothing left behind
    bool run(const char* const* argv, const char* const* envp);

    /// Whether the child's output is no longer read.
    bool has_ended() override;

    /// The child's output is being read.
    bool is_running() const;
    /// The reading has ended; when that is because the output has, all of it has been put into the ring.
    bool is_finished() const;

    /// Stops reading, closes the child's input and output, and waits for its end. Output that is not in the ring yet is
    /// lost. The child's exit status is not told.
    /// \param timeout_ms  how long to wait; with 0 one look; negative: without limit. A child that has not ended
    ///                    then is left to a detached thread ("CWT" and a number), which waits for it.
    /// \return 0; -1 when there is no child to wait for
    int join(int timeout_ms);

    /// Ends the child with SIGKILL, then `join(0)`. Does nothing in state 0.
    void kill();

    /// Lets the child live on when the stream is destroyed, until it ends by itself, say for want of input.
    void detach();

    /// What the reader thread runs; the stream itself calls it.
    static void thread_runner(Process_data_stream* stream);

  private:
    enum State { not_running = 0, running = 1, finished = 2 };

    void move_output();
    unsigned int room_for_output();
    bool take_output(unsigned int room);
    void put_into_ring(const unsigned char* data, unsigned int count);

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
};
