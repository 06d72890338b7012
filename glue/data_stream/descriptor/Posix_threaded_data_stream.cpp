// The reader thread of a stream, none at first:
//
//             open, start             pause
//   stopped -------------> running ----------> paused
//    ^  ^                  |     ^             |    |
//    |  |       stop       |     |   resume    |    |
//    |  +------------------+     +-------------+    |
//    |                  stop                        |
//    +----------------------------------------------+
//
// The operations of the stream. What its thread does is in Posix_threaded_reader.cpp.

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include "data_stream/descriptor/Posix_threaded_reader.h"
#include "detail/assertion.h"
#include "detail/descriptors.h"
#include "detail/hex_digits.h"
#include "detail/line_end.h"

#include <glue/data_stream/port_logging.h>

#include <platform/Atime.h>
#include <platform/stzncpy.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

namespace {
using Descriptor_use = std::shared_lock<std::shared_mutex>;

enum Pipe_end { reading, writing };

constexpr std::int64_t no_timer = -1;

/// How many times, 1 ms apart, `write_tarve` checks for free space in the transmit ring.
constexpr int most_polls_for_space = 1000;

std::atomic<unsigned> streams_made{0};
std::atomic<unsigned> threads_started{0};

/// The stream whose reader this thread is.
thread_local const Posix_threaded_data_stream* stream_of_this_thread = nullptr;

void close_end(int& end) {
    if (end >= 0 && ::close(end) != 0)
        std::perror("Posix_threaded_data_stream: cannot close notification pipe");
    end = -1;
}

/// Both ends are non-blocking, and programs that the process starts do not inherit them.
void open_pipe(int (&ends)[2]) {
    const bool made = pipe2(ends, O_NONBLOCK | O_CLOEXEC) == 0;
    for (int& end : ends)
        end = made ? glue_detail::above_standard(end) : -1;
    if (ends[reading] >= 0 && ends[writing] >= 0) {
        glue_detail::close_on_exec(ends[reading]);
        glue_detail::close_on_exec(ends[writing]);
        return;
    }
    std::perror("Posix_threaded_data_stream: cannot open notification pipe");
    close_end(ends[reading]);
    close_end(ends[writing]);
}

} // namespace

Posix_threaded_data_stream::Posix_threaded_data_stream(const char* prefix)
    : Posix_data_stream(prefix),
      Pushed_data_stream(nullptr, stream_lock_),
      tx_ring_(tx_storage_, tx_capacity),
      rx_event_timeout_ms_(0),
      rx_event_pending_(false),
      write_buffering_(false),
      port_logging_(log_none),
      stopping_(false),
      wake_pending_(false),
      timer_due_(no_timer) {
    char name[16];
    std::snprintf(name, sizeof name, "PDS%u", ++streams_made);
    stzncpy(short_name_, name, sizeof short_name_);
    open_pipe(notify_pipe_);
}

Posix_threaded_data_stream::~Posix_threaded_data_stream() {
    GLUE_ASSERT(!in_reader_thread());
    stop();
    close_end(notify_pipe_[reading]);
    close_end(notify_pipe_[writing]);
}

// ---- Opening, and the life of the thread ----

bool Posix_threaded_data_stream::open(const char* path, bool create, bool blocking, bool append) {
    return run_when(Posix_data_stream::open(path, create, blocking, append));
}

bool Posix_threaded_data_stream::open_read(const char* path, bool blocking) {
    return run_when(Posix_data_stream::open_read(path, blocking));
}

bool Posix_threaded_data_stream::open_write(const char* path, bool create, bool blocking, bool append) {
    return run_when(Posix_data_stream::open_write(path, create, blocking, append));
}

bool Posix_threaded_data_stream::run_when(bool opened) {
    if (opened) {
        start();
        wake();
    }
    return opened;
}

void Posix_threaded_data_stream::start() {
    if (in_reader_thread())
        return;
    const std::lock_guard guard(thread_lock_);
    if (reader_thread_)
        return;
    stopping_ = false;
    try {
        reader_thread_ = std::make_shared<std::thread>(reader_tasker, this);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "Posix_threaded_data_stream: cannot start the reader thread: %s\n", error.what());
    }
}

void Posix_threaded_data_stream::stop() {
    if (in_reader_thread())
        return;
    const std::lock_guard guard(thread_lock_);
    if (!reader_thread_)
        return;
    stopping_ = true;
    if (!notify('q'))
        std::perror("Posix_threaded_data_stream: cannot close notification stream");
    pause_gate_.release(); // ends a pause
    reader_thread_->join();
    reader_thread_.reset();
    forget_requests();
}

/// Discards the requests to this thread, so that the next thread does not receive them.
void Posix_threaded_data_stream::forget_requests() {
    char forgotten[256];
    while (::read(notify_pipe_[reading], forgotten, sizeof forgotten) > 0) {
    }
    while (pause_gate_.acquire(0)) {
    }
    wake_pending_ = false;
}

bool Posix_threaded_data_stream::in_reader_thread() const {
    return stream_of_this_thread == this;
}

void Posix_threaded_data_stream::reader_tasker(Posix_threaded_data_stream* stream) {
    stream_of_this_thread = stream;
    stream->reader_task();
}

void Posix_threaded_data_stream::reader_task() {
    char name[16];
    std::snprintf(name, sizeof name, "PTDS%u", ++threads_started);
    pthread_setname_np(pthread_self(), name);
    // A write to a peer that is gone fails with EPIPE and must not end the process.
    sigset_t broken_pipe;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);

    flush();
    Reader(*this).run();
}

/// A full pipe is no failure for a request that only wakes the thread: what the pipe holds wakes it.
bool Posix_threaded_data_stream::notify(char command) const {
    ssize_t written;
    do
        written = ::write(notify_pipe_[writing], &command, 1);
    while (written < 0 && errno == EINTR);
    return written == 1 || (errno == EAGAIN && command != 'p');
}

bool Posix_threaded_data_stream::wake() {
    if (wake_pending_.exchange(true) || notify('n'))
        return true;
    wake_pending_ = false;
    return false;
}

bool Posix_threaded_data_stream::pause() {
    if (!notify('p'))
        std::perror("Posix_threaded_data_stream: cannot write to notification stream");
    return true;
}

void Posix_threaded_data_stream::resume() {
    pause_gate_.release();
}

void Posix_threaded_data_stream::handle_close() {}

void Posix_threaded_data_stream::set_timer(int ms) {
    timer_due_ = (Atime::now() + ms).units();
    if (!in_reader_thread())
        wake();
}

void Posix_threaded_data_stream::handle_timer() {}

// ---- Receiving ----

int Posix_threaded_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

void Posix_threaded_data_stream::lock() {
    Pushed_data_stream::lock();
}

void Posix_threaded_data_stream::unlock() {
    Pushed_data_stream::unlock();
}

void Posix_threaded_data_stream::set_rx_event_timeout(unsigned int ms) {
    rx_event_timeout_ms_ = ms;
}

void Posix_threaded_data_stream::send_rx_event(bool full) {
    if (full || rx_event_timeout_ms_ == 0) {
        Event_sender_data_stream::send_rx_event(full);
        return;
    }
    rx_event_pending_ = true;
    if (!in_reader_thread())
        wake();
}

// ---- Writing ----

void Posix_threaded_data_stream::set_write_buffering(bool on) {
    write_buffering_ = on;
    if (on)
        wake(); // bytes may be queued since buffering was last on
}

int Posix_threaded_data_stream::_write(const unsigned char* data, unsigned int len) {
    return _write(data, len, false);
}

int Posix_threaded_data_stream::write_packet(const unsigned char* data, unsigned int len) {
    return _write(data, len, true);
}

int Posix_threaded_data_stream::_write(const unsigned char* data, unsigned int len, bool packet) {
    log_port(log_writes, "WRPRE", data, len);
    if (!write_buffering_)
        return write_unbuffered(data, len);

    unsigned int written;
    unsigned int queued = 0;
    bool dropped;
    {
        const std::lock_guard guard(tx_lock_);
        written = write_at_once(data, len);
        const unsigned int rest = len - written;
        dropped = packet && rest > tx_ring_.free_space();
        if (!dropped)
            queued = tx_ring_.append(data + written, rest);
    }
    log_port(log_writes, "WR", data, written);
    if (queued > 0)
        notify_of_queued_bytes();
    return dropped ? 0 : static_cast<int>(written);
}

int Posix_threaded_data_stream::write_unbuffered(const unsigned char* data, unsigned int len) {
    int written;
    {
        const Descriptor_use use(descriptor_use);
        written = Posix_data_stream::_write(data, len);
    }
    if (written > 0)
        log_port(log_writes, "WR", data, static_cast<unsigned int>(written));
    return written;
}

/// Writes what the descriptor accepts now; nothing while earlier bytes are queued. Called with `tx_lock_` held.
/// \return the bytes written
unsigned int Posix_threaded_data_stream::write_at_once(const unsigned char* data, unsigned int len) {
    if (!tx_ring_.empty())
        return 0;
    const Descriptor_use use(descriptor_use);
    const ssize_t written = ::write(write_fd, data, len);
    return written < 0 ? 0 : static_cast<unsigned int>(written);
}

void Posix_threaded_data_stream::notify_of_queued_bytes() {
    if (!wake())
        std::perror("Posix_threaded_data_stream: cannot notification write");
}

bool Posix_threaded_data_stream::write_tarve(const unsigned char* data, unsigned int len) {
    if (!write_buffering_)
        return _write(data, len) > 0;

    log_port(log_writes, "WRGPRE", data, len);
    unsigned int written;
    {
        const std::lock_guard guard(tx_lock_);
        written = write_at_once(data, len);
    }
    log_port(log_writes, "WR", data, written);

    const unsigned int rest = len - written;
    if (rest > 0 && waits_when_congested(data + written, rest))
        queue_when_it_fits(data + written, rest);
    return written > 0;
}

void Posix_threaded_data_stream::queue_when_it_fits(const unsigned char* data, unsigned int len) {
    int polls = 0;
    for (; polls < most_polls_for_space && free_transmit_space() < len; ++polls)
        Atime::delay(1);
    {
        const std::lock_guard guard(tx_lock_);
        tx_ring_.append(data, len);
    }
    notify_of_queued_bytes();
    Debug::Print::critical("Delayed writing TARVE message due to congestion.  Delay = ~%dms\n", polls);
}

unsigned int Posix_threaded_data_stream::free_transmit_space() {
    const std::lock_guard guard(tx_lock_);
    return tx_ring_.free_space();
}

// ---- The congestion rule ----

namespace {

// A frame: two letters, the length of its body in three hexadecimal digits, the body.
constexpr unsigned int frame_length_offset = 2;
constexpr unsigned int frame_length_digits = 3;
constexpr unsigned int frame_head_size = frame_length_offset + frame_length_digits;

/// A longer sentence is queued, not dropped.
constexpr unsigned int longest_dropped_sentence = 100;

bool may_follow_a_frame(unsigned char byte) {
    return glue_detail::ends_line(byte) || byte == '\0';
}

/// Whether this is one whole frame, with nothing after it except line ends and NULs.
bool is_framed_message(const unsigned char* bytes, unsigned int count) {
    if (count < frame_head_size)
        return false;
    const int body = glue_detail::hex_value(bytes + frame_length_offset, frame_length_digits);
    if (body < 0 || count < frame_head_size + static_cast<unsigned int>(body))
        return false;
    return std::all_of(bytes + frame_head_size + body, bytes + count, may_follow_a_frame);
}

bool is_reply(const unsigned char* frame) {
    return std::memcmp(frame, "RE", 2) == 0 || std::memcmp(frame, "ER", 2) == 0;
}

} // namespace

bool Posix_threaded_data_stream::waits_when_congested(const unsigned char* rest, unsigned int count) {
    constexpr unsigned int too_short_to_judge = 4;
    if (count < too_short_to_judge)
        return true;
    if (is_framed_message(rest, count))
        return is_reply(rest);
    return rest[0] != '$' || count > longest_dropped_sentence;
}

// ---- Logging ----

int Posix_threaded_data_stream::set_port_logging(data_stream_logging_t flags) {
    port_logging_ = flags;
    return 0;
}

void Posix_threaded_data_stream::log_port(data_stream_logging_t direction, const char* tag, const unsigned char* data,
                                          unsigned int len) const {
    if (port_logging_ & direction)
        do_port_logging(Debug::Print::enabled(port_logging_category), copy_description().data(), tag, data, data + len,
                        nullptr);
}
