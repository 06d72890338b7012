#include "logging/Log_source.h"

#include <platform/Atime.h>
#include <platform/Scoped_priority_change.h>
#include <platform/file_foreach.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

// The states of a source, and where bytes that are logged go:
//
//     no_writer        into the history
//        |
//        | the first file is opened: the writer is started
//        v
//     logging          into the queue of the open file; without one, into the history      <-----+
//        |   |                                                                                   |
//        |   | flush(rotate): the open file is closed, the rotation's file is opened             |
//        |   v                                                                                   |
//        |  rotation_wanted   into the history                                                   |
//        |   |                                                                                   |
//        |   | the writer: the queue is empty, it has taken the file                             |
//        |   v                                                                                   |
//        |  rotating          dropped                                                            |
//        |   |                                                                                   |
//        |   | the writer: the history is written                                                |
//        |   +-----------------------------------------------------------------------------------+
//        |
//        | the process exits and the queue is empty
//        v
//     ended            nobody writes them
//
// Only the writer leaves rotation_wanted and rotating. Until it has, enabling and configuring wait.

namespace {

constexpr unsigned usual_period_ms = 1000;
std::atomic<unsigned> period_ms{usual_period_ms};

std::int64_t now_ms() {
    return Atime::now().units();
}

} // namespace

void Log_source::set_period(unsigned ms) {
    if (ms != 0)
        period_ms = ms;
}

// ---- The application's operations ----

void Log_source::configure(bool direct, unsigned span, unsigned history_size, Log_file_naming naming, bool open_now) {
    Lock lock(mutex_);
    await_no_rotation(lock);
    if (history_.keeps_moments() != (span != 0) || history_size != history_size_)
        history_.resize(!direct && span != 0, direct ? 0 : history_size);
    naming_ = std::move(naming);
    configured_ = true;
    span_ = span;
    history_size_ = history_size;
    queue_.resize(history_size + queue_beyond_history);
    close_file();
    if (direct && open_now && open_file())
        queue_history(); // of a source that kept history and has become direct with the same sizes
}

void Log_source::enable(bool on) {
    Lock lock(mutex_);
    await_no_rotation(lock);
    enabled_ = on;
    if (on && configured_ && !queue_.open_file() && open_file())
        queue_history();
}

bool Log_source::write(const unsigned char* bytes, unsigned count) {
    if (is_busy()) {
        dropped_ += count;
        return enabled_;
    }
    if (!enabled_)
        return false;
    const Lock lock(mutex_);
    if (!append(bytes, count))
        dropped_ += count;
    return true;
}

void Log_source::flush(bool rotate) {
    Lock lock(mutex_);
    if (enabled_ && !rotation_pending() && queue_.open_file())
        flush_file(lock);
    if (rotate)
        this->rotate(lock);
}

void Log_source::delete_files(bool also_current) {
    const Lock lock(mutex_);
    if (!configured_)
        return;
    const std::string prefix = naming_.prefix();
    file_foreach(naming_.folder(), false, [&](const std::string& path) {
        if (path.compare(0, prefix.size(), prefix) == 0 && (also_current || path != kept_path_))
            std::remove(path.c_str());
    });
}

void Log_source::use_time_of_writing(bool on, unsigned group_ms) {
    const Lock lock(mutex_);
    by_time_of_writing_ = on;
    group_ms_ = std::max(group_ms, 1U);
}

logging_source_status Log_source::status() {
    const Lock lock(mutex_);
    logging_source_status status{};
    status.enabled = enabled_;
    status.busy = is_busy();
    status.dropped = dropped_;
    status.history_bytes = status.busy ? 0 : history_.size();
    status.queued = queued_ - written_;
    if (const auto& file = queue_.open_file()) {
        status.file_bytes = file_bytes_;
        status.file_age = static_cast<unsigned>(now_ms() - opened_at_);
        file->path().copy(status.path, sizeof status.path - 1);
    }
    return status;
}

bool Log_source::end_writer() {
    const Lock lock(mutex_, std::try_to_lock);
    if (!lock)
        return false; // perhaps a disk hangs while a file is opened
    if (state_ == State::no_writer)
        return true;
    end_wanted_ = true;
    changed_.notify_all();
    return state_ == State::ended;
}

// ---- With the lock held ----

void Log_source::await_no_rotation(Lock& lock) {
    changed_.wait(lock, [this] { return !rotation_pending(); });
}

void Log_source::set_state(State state) {
    state_ = state;
    changed_.notify_all();
}

/// Starts the writer with the first file. \return false when it cannot be started or has ended
bool Log_source::start_writer() {
    if (state_ != State::no_writer)
        return state_ != State::ended;
    const bool started = task_.vro_start(0, run_writer, this, false);
    if (started)
        set_state(State::logging);
    else if (!start_failure_reported_)
        std::fprintf(stderr, "%s*: cannot start the thread that writes it\n", naming_.prefix().c_str());
    start_failure_reported_ = !started;
    return started;
}

/// Waits until everything that is queued now is written.
void Log_source::flush_file(Lock& lock) {
    std::shared_ptr<Log_file> file = queue_.open_file();
    changed_.wait(lock, [this, queued = queued_] { return written_ >= queued || state_ == State::ended; });
    lock.unlock();
    file->flush();
    file.reset(); // closes it if it is no longer in use
    lock.lock();
}

/// Opens a file for the history and waits until the writer has taken it. Two threads that rotate take turns.
void Log_source::rotate(Lock& lock) {
    const auto begun = [this] { return state_ != State::rotation_wanted; };
    changed_.wait(lock, begun);
    if (!enabled_ || !configured_ || is_busy())
        return;
    close_file();
    if (!open_file())
        return;
    set_state(State::rotation_wanted);
    changed_.wait(lock, begun);
}

/// The writer closes the file after the last byte that is queued for it.
void Log_source::close_file() {
    queue_.close();
    changed_.notify_all();
}

bool Log_source::open_file() {
    if (!start_writer())
        return false;
    const std::string path = naming_.unused_path();
    std::shared_ptr<Log_file> file = Log_file::open(path);
    if (!file && !open_failure_reported_)
        std::perror(path.c_str());
    open_failure_reported_ = !file;
    if (!file)
        return false;
    queue_.open(std::move(file));
    kept_path_ = path;
    opened_at_ = now_ms();
    file_bytes_ = 0;
    return true;
}

/// Puts the history at the beginning of the file that has just been opened.
void Log_source::queue_history() {
    history_.take([this](const unsigned char* bytes, unsigned count) {
        if (!queue(bytes, count))
            dropped_ += count;
    });
}

/// \return false when the bytes are dropped
bool Log_source::append(const unsigned char* bytes, unsigned count) {
    if (is_busy())
        return false;
    const bool has_file = queue_.open_file() && state_ != State::rotation_wanted;
    return has_file ? queue(bytes, count) : keep(bytes, count);
}

bool Log_source::queue(const unsigned char* bytes, unsigned count) {
    if (!queue_.append(bytes, count))
        return false;
    queued_ += count;
    changed_.notify_all();
    return true;
}

bool Log_source::keep(const unsigned char* bytes, unsigned count) {
    if (count >= history_size_)
        return false;
    const std::int64_t now = now_ms();
    return history_.add(key_for(now), now - span_, bytes, count);
}

std::int64_t Log_source::key_for(std::int64_t now) const {
    if (by_time_of_writing_)
        return now - now % group_ms_ + group_ms_ - 1; // a group is as old as the last byte that it can have
    const std::int64_t period = period_ms;
    return period * (now % period); // the product is on purpose
}

// ---- The writer ----

void* Log_source::run_writer(void* source) {
    static_cast<Log_source*>(source)->run();
    return nullptr;
}

void Log_source::run() {
    std::vector<unsigned char> buffer(largest_write);
    Lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return !queue_.empty() || state_ == State::rotation_wanted || end_wanted_; });
        if (!queue_.empty())
            write_piece(lock, buffer);
        else if (state_ == State::rotation_wanted)
            write_history(lock);
        else
            break;
    }
    set_state(State::ended);
}

void Log_source::write_piece(Lock& lock, std::vector<unsigned char>& buffer) {
    Log_queue::Piece piece = queue_.take(buffer.data(), largest_write);
    lock.unlock();
    const std::size_t written = piece.count > 0 ? piece.file->write(buffer.data(), piece.count) : 0;
    if (piece.ends_file)
        piece.file.reset(); // closes it
    lock.lock();
    written_ += piece.count;
    dropped_ += piece.count - written;
    if (piece.file && piece.file == queue_.open_file())
        file_bytes_ += written;
    changed_.notify_all();
}

/// Writes the history to the rotation's file, then to the medium.
void Log_source::write_history(Lock& lock) {
    std::shared_ptr<Log_file> file = queue_.release();
    set_state(State::rotating);
    lock.unlock();
    {
        const Scoped_priority_change below_others;
        history_.take(
            [&](const unsigned char* bytes, unsigned count) { dropped_ += count - file->write(bytes, count); });
        file->flush();
        lock.lock();
        set_state(State::logging);
        lock.unlock();
        sync();
    }
    file.reset(); // closes it
    lock.lock();
}
