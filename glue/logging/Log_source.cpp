#include "logging/Log_source.h"

#include <platform/Atime.h>
#include <platform/Scoped_priority_change.h>
#include <platform/file_foreach.h>

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned usual_period_ms = 1000;
std::atomic<unsigned> period_ms{usual_period_ms};

std::int64_t now_ms() {
    return Atime::now().units();
}

/// Keeps a semaphore that several may have posted at one.
void post_once(QSemaphore& semaphore) {
    semaphore.release();
    while (semaphore.available() > 1 && semaphore.tryAcquire()) {
    }
}

} // namespace

void Log_source::set_period(unsigned ms) {
    if (ms != 0)
        period_ms = ms;
}

// ---- What applications ask for ----

void Log_source::configure(bool direct, unsigned span, unsigned history_size, Log_file_naming naming, bool open_now) {
    Lock lock(mutex_);
    progress_.wait(lock, [this] { return !busy_ && !rotation_wanted_; });
    if (history_.keeps_moments() != (span != 0) || history_size != history_size_)
        history_.resize(!direct && span != 0, direct ? 0 : history_size);
    naming_ = std::move(naming);
    configured_ = true;
    span_ = span;
    history_size_ = history_size;
    resize_queue();
    let_go_of_file();
    if (direct && open_now && open_file())
        queue_history(); // there is one when a source that kept history has become direct with the same sizes
}

void Log_source::enable(bool on) {
    Lock lock(mutex_);
    progress_.wait(lock, [this] { return !busy_ && !rotation_wanted_; });
    enabled_ = on;
    if (on && configured_ && !file_ && open_file())
        queue_history();
}

bool Log_source::write(const unsigned char* bytes, unsigned count) {
    if (busy_) {
        dropped_ += count;
        return enabled_;
    }
    if (!enabled_)
        return false;
    const Lock lock(mutex_);
    const bool has_file = file_ && !rotation_wanted_;
    const bool taken = !busy_ && (has_file ? queue(bytes, count) : keep(bytes, count));
    if (!taken)
        dropped_ += count;
    return true;
}

void Log_source::flush(bool rotate) {
    const Lock turn = rotate ? Lock(rotation_turn_) : Lock();
    Lock lock(mutex_);
    if (!may_rotate())
        return;
    if (file_)
        flush_file(lock);
    if (rotate && configured_ && may_rotate())
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
    status.busy = busy_;
    status.dropped = dropped_;
    status.history_bytes = busy_ ? 0 : history_.size();
    status.queued = queued_ - written_;
    if (file_) {
        status.file_bytes = file_bytes_;
        status.file_age = static_cast<unsigned>(now_ms() - opened_at_);
        file_->path().copy(status.path, sizeof status.path - 1);
    }
    return status;
}

// ---- With the lock held ----

/// The writer is there from the first file on. \return false when there is none, or none any more
bool Log_source::start_writer() {
    if (!started_) {
        running_ = true;
        started_ = task_.vro_start(0, run_writer, this, false);
        running_ = started_;
        if (!started_ && !start_failure_told_)
            std::fprintf(stderr, "%s*: cannot start the thread that writes it\n", naming_.prefix().c_str());
        start_failure_told_ = !started_;
    }
    return running_;
}

/// Waits until everything queued so far is written. Without the lock: a disk may take its time.
void Log_source::flush_file(Lock& lock) {
    const std::shared_ptr<Log_file> file = file_;
    progress_.wait(lock, [this, so_far = queued_] { return written_ >= so_far || !running_; });
    lock.unlock();
    file->flush();
    lock.lock();
}

/// Has the writer take over a new file for the history, and waits until it has.
void Log_source::rotate(Lock& lock) {
    let_go_of_file();
    if (!open_file())
        return;
    rotation_wanted_ = true;
    wake_writer();
    lock.unlock();
    acknowledgement_.acquire();
    lock.lock();
}

/// Gives the queue room for the whole history and as much again as a slow disk may take, beside what is in it.
void Log_source::resize_queue() {
    const unsigned wanted = history_size_ + queue_beyond_history;
    if (queue_ && queue_->capacity() == wanted)
        return;
    auto resized = std::make_unique<Owned_ring<unsigned char>>(wanted + (queue_ ? queue_->size() : 0));
    while (queue_ && !queue_->empty()) {
        const auto piece = queue_->used_region();
        resized->append(piece.begin, piece.size);
        queue_->consume(piece.size);
    }
    queue_ = std::move(resized);
}

/// The writer closes the file, behind what is queued for it.
void Log_source::let_go_of_file() {
    if (!file_)
        return;
    finished_.push_back({std::move(file_), bytes_for_file_});
    file_ = nullptr;
    bytes_for_file_ = 0;
    wake_writer();
}

bool Log_source::open_file() {
    if (!start_writer())
        return false;
    const std::string path = naming_.free_path();
    file_ = Log_file::open(path);
    if (!file_) {
        if (!open_failure_told_)
            std::perror(path.c_str());
        open_failure_told_ = true;
        return false;
    }
    open_failure_told_ = false;
    kept_path_ = path;
    opened_at_ = now_ms();
    file_bytes_ = 0;
    return true;
}

/// What has been kept goes to the file that has just been opened, in front of all that comes.
void Log_source::queue_history() {
    history_.take([this](const unsigned char* bytes, unsigned count) {
        if (!queue(bytes, count))
            dropped_ += count;
    });
}

bool Log_source::queue(const unsigned char* bytes, unsigned count) {
    if (queue_->room() < count)
        return false;
    if (count == 0)
        return true;
    queue_->append(bytes, count);
    queued_ += count;
    bytes_for_file_ += count;
    wake_writer();
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

void Log_source::wake_writer() {
    post_once(request_);
}

// ---- The writer ----

void* Log_source::run_writer(void* source) {
    static_cast<Log_source*>(source)->run();
    return nullptr;
}

void Log_source::run() {
    std::vector<unsigned char> piece(largest_write);
    do {
        request_.acquire();
        if (write_queue(piece))
            write_history();
    } while (!ends());
}

/// Decided with the lock held, so that nobody begins to wait for a writer that has gone.
bool Log_source::ends() {
    const Lock lock(mutex_);
    if (!stop_ || rotation_wanted_)
        return false;
    stop_ = false;
    running_ = false;
    progress_.notify_all();
    return true;
}

/// Writes everything that is queued, a piece at a time, each without the lock. \return whether a rotation is wanted
bool Log_source::write_queue(std::vector<unsigned char>& piece) {
    Lock lock(mutex_);
    std::shared_ptr<Log_file> last;
    while (!finished_.empty() || bytes_for_file_ > 0) {
        const std::shared_ptr<Log_file> file = finished_.empty() ? file_ : finished_.front().file;
        unsigned& bytes = finished_.empty() ? bytes_for_file_ : finished_.front().bytes;
        const unsigned count = std::min(bytes, largest_write);
        if (count > 0) {
            queue_->peek(piece.data(), count, 0);
            queue_->consume(count);
            bytes -= count;
        }
        if (!finished_.empty() && finished_.front().bytes == 0)
            finished_.pop_front();
        lock.unlock();
        const std::size_t written = count > 0 ? file->write(piece.data(), count) : 0;
        if (last && last != file)
            last->flush();
        last = file;
        lock.lock();
        written_ += count;
        dropped_ += count - written;
        if (file == file_)
            file_bytes_ += written;
        progress_.notify_all();
    }
    lock.unlock();
    if (last)
        last->flush();
    last.reset(); // closed here, without the lock, when nobody else has it
    lock.lock();
    return rotation_wanted_ && finished_.empty();
}

/// Takes the file over and writes the history into it. Who asked for it goes on meanwhile.
void Log_source::write_history() {
    Lock lock(mutex_);
    std::shared_ptr<Log_file> file = std::move(file_);
    file_ = nullptr;
    rotation_wanted_ = false;
    busy_ = true;
    lock.unlock();
    post_once(acknowledgement_);
    {
        const Scoped_priority_change behind_others;
        history_.take(
            [&](const unsigned char* bytes, unsigned count) { dropped_ += count - file->write(bytes, count); });
        file->flush();
        lock.lock();
        busy_ = false;
        progress_.notify_all();
        lock.unlock();
        sync();
    }
    file.reset();
}

void Log_source::ask_to_end() {
    if (!running_)
        return;
    stop_ = true;
    wake_writer();
}
