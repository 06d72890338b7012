#include <platform/Debug.h>

#include "readable.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <execinfo.h>
#include <mutex>
#include <pthread.h>
#include <string>
#include <unistd.h>

namespace Debug {

namespace {

using platform_detail::Readable_byte;
using platform_detail::Time_stamp;

constexpr std::size_t longest_line = 8192;

// Around a fork: otherwise a thread that the child does not have could hold the lock of the child's printer for ever.
void lock_sink();
void unlock_sink();
void reset_in_child();

/// The data that all threads share. Never destroyed: streams with static storage still print while the process ends.
struct Shared {
    std::array<std::atomic<bool>, category_count> on{};
    std::mutex sink_mutex;
    Print::Sink sink;

    Shared() {
        pthread_atfork(lock_sink, unlock_sink, reset_in_child);
        if (const char* list = std::getenv("GLUE_DEBUG"))
            enable_list(list);
    }

    /// Switches on every number in a text; any character except a digit separates them.
    void enable_list(const char* list) {
        while (*list != '\0') {
            char* end = nullptr;
            const unsigned long category = std::strtoul(list, &end, 10);
            if (end == list) {
                ++list;
                continue;
            }
            if (category < category_count)
                on[category] = true;
            list = end;
        }
    }
};

Shared& shared() {
    static Shared* const instance = new Shared;
    return *instance;
}

/// Created while there is only one thread: a child that is forked while another thread creates it would wait for ever.
[[maybe_unused]] const Shared& created_at_start = shared();

thread_local bool inside_sink = false;
thread_local bool line_is_destroyed = false;

void write_to_standard_error(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void deliver(std::string_view text) {
    if (inside_sink || text.empty())
        return;
    const std::lock_guard guard(shared().sink_mutex);
    inside_sink = true;
    if (shared().sink)
        shared().sink(text);
    else
        write_to_standard_error(text);
    inside_sink = false;
}

/// The line that a thread is composing.
class Line {
  public:
    ~Line() {
        deliver(text_);
        line_is_destroyed = true;
    }

    void add(std::string_view text) {
        text_ += text;
        const std::size_t end = text_.rfind('\n');
        if (end != std::string::npos)
            send(end + 1);
        else if (text_.size() >= longest_line)
            send(text_.size());
    }

    void send_all() { send(text_.size()); }
    void clear() { text_.clear(); }

  private:
    void send(std::size_t length) {
        deliver(std::string_view(text_).substr(0, length));
        text_.erase(0, length);
    }

    std::string text_;
};

Line& own_line() {
    static thread_local Line line;
    return line;
}

void add(std::string_view text, bool at_once = false) {
    if (inside_sink)
        return;
    if (line_is_destroyed) { // the process or the thread is ending
        deliver(text);
        return;
    }
    shared(); // before a line begins, so that a forked child discards its copy of it
    own_line().add(text);
    if (at_once)
        own_line().send_all();
}

void lock_sink() {
    if (!inside_sink)
        shared().sink_mutex.lock();
}

void unlock_sink() {
    if (!inside_sink)
        shared().sink_mutex.unlock();
}

/// The parent prints the unfinished line of the forking thread; the child discards its copy.
void reset_in_child() {
    unlock_sink();
    if (!line_is_destroyed)
        own_line().clear();
}

void add_formatted(const char* format, va_list arguments, bool at_once = false) {
    char small[512];
    va_list again;
    va_copy(again, arguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see the caller's va_start
    const int length = std::vsnprintf(small, sizeof small, format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof small) {
        add(std::string_view(small, static_cast<std::size_t>(length)), at_once);
    } else if (length >= 0) {
        std::string large(static_cast<std::size_t>(length) + 1, '\0');
        std::vsnprintf(large.data(), large.size(), format, again);
        large.pop_back();
        add(large, at_once);
    }
    va_end(again);
}

void add_time_stamp() {
    add(Time_stamp().text());
}

/// Preserves `errno` for the caller.
class Errno_keeper {
  public:
    Errno_keeper() : kept_(errno) {}
    ~Errno_keeper() { errno = kept_; }
    Errno_keeper(const Errno_keeper&) = delete;
    Errno_keeper& operator=(const Errno_keeper&) = delete;

  private:
    int kept_;
};

} // namespace

Enable_token Print::enabled(unsigned category) {
    return Enable_token(category < category_count && shared().on[category].load(std::memory_order_relaxed));
}

void Print::enable(unsigned category, bool on) {
    if (category < category_count)
        shared().on[category].store(on, std::memory_order_relaxed);
}

void Print::set_sink(Sink sink) {
    const std::lock_guard guard(shared().sink_mutex);
    shared().sink = std::move(sink);
}

void Print::dprint(const char* format, ...) {
    const Errno_keeper keeper;
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments);
    va_end(arguments);
}

void Print::dprint_ts(const char* format, ...) {
    const Errno_keeper keeper;
    add_time_stamp();
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments);
    va_end(arguments);
}

void Print::dprint_ts() {
    const Errno_keeper keeper;
    add_time_stamp();
}

void Print::print(unsigned category, const char* format, ...) {
    if (!enabled(category))
        return;
    const Errno_keeper keeper;
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments);
    va_end(arguments);
}

void Print::print_ts(unsigned category, const char* format, ...) {
    if (!enabled(category))
        return;
    const Errno_keeper keeper;
    add_time_stamp();
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments);
    va_end(arguments);
}

void Print::printd(const char* text, int length) {
    const Errno_keeper keeper;
    add(length < 0 ? std::string_view(text) : std::string_view(text, static_cast<std::size_t>(length)));
}

void Print::printc(bool at_once, const unsigned char* data, unsigned length) {
    const Errno_keeper keeper;
    add(std::string_view(reinterpret_cast<const char*>(data), length), at_once);
}

void Print::printascii(const unsigned char* data, unsigned length) {
    const Errno_keeper keeper;
    std::string text;
    text.reserve(length);
    for (unsigned i = 0; i < length; ++i)
        text += Readable_byte(data[i]).text();
    add(text);
}

void Print::critical(const char* format, ...) {
    const Errno_keeper keeper;
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments, true);
    va_end(arguments);
}

void Print::print_backtrace(const char* format, ...) {
    const Errno_keeper keeper;
    va_list arguments;
    va_start(arguments, format);
    add_formatted(format, arguments);
    va_end(arguments);

    void* frames[64];
    const int count = backtrace(frames, 64);
    char** names = backtrace_symbols(frames, count);
    for (int i = 1; names && i < count; ++i) {
        add("    ");
        add(names[i]);
        add("\n");
    }
    std::free(names);
    add("", true);
}

} // namespace Debug
