//                    run              end of output, error, stop request
//     not_running ---------> running -----------------------------------> finished
//          ^                                                                 |
//          +---------------------------- join, kill -------------------------+
//
// Only the reader thread changes `running` to `finished`. `join` requests this, waits for the thread, closes the pipes
// and reaps the child. A `run` that fails leads back to `not_running`.

#include <glue/data_stream/Process_data_stream.h>

#include "data_stream/core/stream_specification.h"
#include "detail/Pipe_signal_guard.h"
#include "detail/Select.h"
#include "detail/child_process.h"
#include "detail/descriptors.h"

#include <platform/Atime.h>
#include <platform/Debug.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <wordexp.h>

namespace {

/// The most bytes that are moved at once.
constexpr unsigned piece_size = 1024;
/// How long the reader waits for output before it checks for a stop request.
constexpr int poll_interval_ms = 10;

void name_this_thread(const char* prefix, int number) {
    char name[16];
    std::snprintf(name, sizeof name, "%s%d", prefix, number);
    pthread_setname_np(pthread_self(), name);
}

void print_failed_join(char step) {
    Debug::Print::print(Process_data_stream::debug_category, "Process_data_stream::join (%c): %s\n", step,
                        std::strerror(errno));
}

/// Reaps a child whenever it ends, in a thread that outlives the stream.
void leave_to_detached_thread(int pid) {
    static std::atomic<int> threads{0};
    try {
        std::thread([pid] {
            name_this_thread("CWT", threads++);
            glue_detail::reap_child(pid);
        }).detach();
    } catch (const std::system_error& error) {
        Debug::Print::print(Process_data_stream::debug_category, "no thread to wait for child %d: %s\n", pid,
                            error.what());
    }
}

/// The words into which a shell would split a text.
class Split_words {
  public:
    explicit Split_words(const char* text) : result_(wordexp(text, &words_, 0)) {}
    ~Split_words() {
        if (result_ == 0 || result_ == WRDE_NOSPACE) // other failures allocate nothing
            wordfree(&words_);
    }
    Split_words(const Split_words&) = delete;
    Split_words& operator=(const Split_words&) = delete;

    bool succeeded() const { return result_ == 0; }
    /// Null-terminated.
    const char* const* vector() const { return words_.we_wordv; }

  private:
    wordexp_t words_{};
    int result_;
};

} // namespace

Process_data_stream* Process_data_stream::create(module_man& modules, const char* spec, const char* const* envp) {
    const std::string command = glue_detail::command_in(spec);
    if (command.empty())
        return nullptr;
    const Split_words words(command.c_str());
    if (!words.succeeded()) {
        std::fprintf(stderr, "Could not parse %s\n", command.c_str());
        return nullptr;
    }
    return new Process_data_stream(&modules, words.vector(), envp);
}

Process_data_stream::Process_data_stream(module_man* modules, const char* const* argv, const char* const* envp)
    : Pushed_data_stream(modules, mutex_),
      stop_request_(false),
      state_(not_running),
      child_pid_(0),
      from_child_(-1),
      to_child_(-1),
      kill_on_destroy_(true) {
    if (argv)
        static_cast<void>(run(argv, envp)); // `is_running` returns the outcome
}

Process_data_stream::~Process_data_stream() {
    if (kill_on_destroy_)
        kill();
    else
        join(0);
}

int Process_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

int Process_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (state_ != running)
        return -1;
    const glue_detail::Pipe_signal_guard no_signal;
    return static_cast<int>(::write(to_child_, data, len));
}

// ---- Starting ----

bool Process_data_stream::run(const char* const* argv, const char* const* envp) {
    if (state_.exchange(running) == running)
        return false;
    if (reader_)
        std::terminate();
    glue_detail::Child_process child{-1, -1, -1};
    if (argv && argv[0])
        child = glue_detail::start_child(argv, envp, debug_category);
    child_pid_ = child.pid;
    from_child_ = child.from_child;
    to_child_ = child.to_child;
    stop_request_ = false;
    if (child.pid > 0 && start_reader())
        return true;
    state_ = not_running;
    return false;
}

/// Ends and reaps the child when the system has no thread left.
bool Process_data_stream::start_reader() {
    try {
        reader_.reset(new std::thread(thread_runner, this));
        return true;
    } catch (const std::system_error&) {
        close_pipes();
        ::kill(child_pid_, SIGKILL);
        glue_detail::reap_child(child_pid_.exchange(-1));
        return false;
    }
}

bool Process_data_stream::has_ended() {
    return state_ != running;
}

bool Process_data_stream::is_running() const {
    return state_ == running;
}

bool Process_data_stream::is_finished() const {
    return state_ == finished;
}

// ---- The reader thread ----

void Process_data_stream::thread_runner(Process_data_stream* stream) {
    static std::atomic<int> threads{0};
    name_this_thread("PDS", threads++);
    stream->move_output();
}

void Process_data_stream::move_output() {
    while (!stop_request_) {
        const unsigned free = free_space();
        if (free == 0)
            Atime::delay(1);
        const int ready = wait_for_output();
        if (ready < 0 && errno != EAGAIN)
            break;
        if (ready > 0 && !receive_output(free))
            return;
    }
    state_ = finished;
}

/// On purpose, the child's input is included in the count of descriptors, though in no set.
/// \return as `select`
int Process_data_stream::wait_for_output() {
    glue_detail::Select select(*this, high_descriptor_reported_);
    if (!select.add_reading(from_child_)) {
        errno = EINVAL;
        return -1;
    }
    select.count_in(to_child_);
    timeval interval = glue_detail::Select::limit_of(poll_interval_ms);
    return select.wait(&interval);
}

/// How many bytes may be read at once.
unsigned int Process_data_stream::free_space() {
    const std::lock_guard guard(mutex_);
    return std::min(rx_buffer.free_space(), piece_size);
}

/// Moves output into the ring and sends an event, also when the ring is full: without free space, a read of 0 bytes is
/// not the end of the output.
/// \param free  the most bytes to read
/// \return false when the output has ended; the state is `finished` then
bool Process_data_stream::receive_output(unsigned int free) {
    unsigned char piece[piece_size];
    const ssize_t received = ::read(from_child_, piece, free);
    const int error = errno;

    const std::lock_guard guard(mutex_);
    if (received < 0 && error == EAGAIN)
        return true;
    if (received < 0 || (received == 0 && free > 0)) {
        state_ = finished;
        return false;
    }
    append_to_ring(piece, static_cast<unsigned int>(received));
    send_rx_event(rx_buffer.full());
    return true;
}

/// The bytes fit the free space that was found before the read. Fewer fit only when another producer has appended to
/// the ring since.
void Process_data_stream::append_to_ring(const unsigned char* data, unsigned int count) {
    if (rx_buffer.append(data, count) < count)
        Debug::Print::print(debug_category, "Error: can't write to buffer\n");
}

// ---- Stopping ----

int Process_data_stream::join(int timeout_ms) {
    if (!reader_) {
        state_ = not_running;
        return -1;
    }
    stop_request_ = true;
    reader_->join();
    reader_.reset();
    close_pipes();
    if (timeout_ms >= 0)
        reap_within(timeout_ms);
    else if (!glue_detail::reap_child(child_pid_))
        print_failed_join('b');
    state_ = not_running;
    return 0;
}

void Process_data_stream::close_pipes() {
    glue_detail::close_if_open(from_child_.exchange(-1));
    glue_detail::close_if_open(to_child_.exchange(-1));
}

void Process_data_stream::reap_within(int timeout_ms) {
    const auto limit = static_cast<unsigned long>(timeout_ms);
    const Atime start = Atime::now();
    unsigned long elapsed = 0;
    do {
        const pid_t reaped = waitpid(child_pid_, nullptr, WNOHANG);
        if (reaped < 0)
            print_failed_join('a');
        if (reaped != 0)
            return;
        Atime::delay(1);
        elapsed = Atime::get_elapsed_ms_since(start);
    } while (limit > elapsed);
    Debug::Print::print(debug_category, "couldn't delete child %d after %lu.  Spawning detached thread to wait\n",
                        child_pid_.load(), elapsed);
    leave_to_detached_thread(child_pid_);
}

/// Sends the signal only to a process that is still our child: where the application ignores SIGCHLD, the system reaps
/// the child and may use its number for a new process. A number of 0 or less would mean whole process groups.
void Process_data_stream::kill() {
    if (state_ == not_running)
        return;
    const int pid = child_pid_;
    if (pid > 0 && glue_detail::is_unreaped_child(pid))
        ::kill(pid, SIGKILL);
    join(0);
}

void Process_data_stream::detach() {
    kill_on_destroy_ = false;
}
