#include <glue/data_stream/Data_stream.h>

#include <platform/Binary_message.h>
#include <platform/Debug.h>
#include <platform/stzncpy.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <unordered_map>

namespace {

thread_local bool write_guards_destroyed = false;

/// The streams that the calling thread is writing to. An entry is kept as long as the thread runs.
class Write_guards {
  public:
    ~Write_guards() { write_guards_destroyed = true; }

    /// The calling thread's entry for a stream; null when the thread's own storage is destroyed already: the destructor
    /// of a static object may still write.
    static bool* of(const Data_stream* stream) {
        if (write_guards_destroyed)
            return nullptr;
        static thread_local Write_guards guards;
        return &guards.write_in_progress_[stream];
    }

  private:
    std::unordered_map<const Data_stream*, bool> write_in_progress_;
};

/// Marks a write as in progress as long as it lives, also when an exception ends the write.
class Write_mark {
  public:
    explicit Write_mark(bool* entry) : entry_(entry) {
        if (entry_)
            *entry_ = true;
    }
    ~Write_mark() {
        if (entry_)
            *entry_ = false;
    }
    Write_mark(const Write_mark&) = delete;
    Write_mark& operator=(const Write_mark&) = delete;

  private:
    bool* entry_;
};

void trace_end_of_write(int written, unsigned int len) {
    const int error = errno;
    Debug::Print::dprint("] (%d)\n", written);
    if (written == -1) {
        errno = error;
        std::perror("error is");
        errno = error;
    } else if (written != static_cast<int>(len)) {
        Debug::Print::dprint("!SHORT WRITE!: wrote %d of %u\n", written, len);
    }
}

bool is_printable(unsigned char byte) {
    return byte >= 0x20 && byte <= 0x7E;
}

/// Guards the descriptions of all streams. Held only while one is copied.
std::mutex description_lock;

} // namespace

Data_stream::Commander::~Commander() = default;

Data_stream::Data_stream()
    : rx_buffer(rx_storage_, rx_capacity), debug_writes(false), rx_count(0), tx_count(0), buffer_lock(nullptr) {
    format_description("DS(%p)", static_cast<void*>(this));
}

Data_stream::~Data_stream() = default;

void Data_stream::drop(unsigned int n) {
    const Mutex_guard guard(buffer_lock);
    if (skip(n))
        return;
    if (_get_data(static_cast<int>(n - rx_buffer.size())) != 0)
        rx_buffer.consume(n);
}

/// Consumes `n` bytes if that many are buffered.
bool Data_stream::skip(unsigned int n) {
    if (n > rx_buffer.size())
        return false;
    rx_buffer.consume(n);
    return true;
}

void Data_stream::drop_all() {
    const Mutex_guard guard(buffer_lock);
    rx_buffer.clear();
}

unsigned int Data_stream::bytes_avail() {
    const Mutex_guard guard(buffer_lock);
    return rx_buffer.size();
}

int Data_stream::set_port_logging(data_stream_logging_t) {
    return 0;
}

void Data_stream::flush() {}

int Data_stream::set_read_timeout(int) {
    return 0;
}

int Data_stream::set_default_read_timeout() {
    return 0;
}

int Data_stream::set_write_timeout(int) {
    return 0;
}

int Data_stream::set_default_write_timeout() {
    return 0;
}

bool Data_stream::get_data(unsigned char* dst, unsigned int len, unsigned int offset) {
    const Mutex_guard guard(buffer_lock);
    const unsigned int avail = rx_buffer.size();
    // Unsigned on purpose: an offset beyond the buffered bytes wraps to a huge difference, so that nothing is fetched.
    if (len > avail - offset && _get_data(static_cast<int>(offset + len - avail)) == 0)
        return false;
    return rx_buffer.peek(dst, len, offset) == len;
}

int Data_stream::_get_data(int n) {
    return get_data(n);
}

unsigned char Data_stream::operator[](unsigned int i) {
    const Mutex_guard guard(buffer_lock);
    const unsigned int avail = rx_buffer.size();
    if (i >= avail && _get_data(static_cast<int>(i + 1 - avail)) == 0)
        return 0;
    if (i >= rx_buffer.size())
        return rx_buffer.storage_front(); // on purpose: not the oldest byte
    return rx_buffer.at(i);
}

int Data_stream::bytes_avail(unsigned int n) {
    const Mutex_guard guard(buffer_lock);
    const unsigned int avail = rx_buffer.size();
    return n <= avail ? 1 : _get_data(static_cast<int>(n - avail));
}

unsigned int Data_stream::string_avail() {
    unsigned int avail = bytes_avail();
    if (avail >= rx_capacity)
        return full_ring;
    for (unsigned int i = 0; i < avail;) {
        if (is_printable((*this)[i])) {
            ++i;
        } else if (i > 0) {
            return i;
        } else {
            drop(1);
            --avail;
        }
    }
    return 0;
}

int Data_stream::__write(const unsigned char* data, unsigned int len) {
    if (!debug_writes)
        return guarded_write(data, len, 0);
    Debug::Print::dprint_ts("WR(%d)[", static_cast<int>(len));
    Debug::Print::printascii(data, len);
    const int written = guarded_write(data, len, 0);
    trace_end_of_write(written, len);
    return written;
}

int Data_stream::write_direct(const unsigned char* data, unsigned int len) {
    return guarded_write(data, len, static_cast<int>(len));
}

int Data_stream::guarded_write(const unsigned char* data, unsigned int len, int result_when_nested) {
    bool* const in_progress = Write_guards::of(this);
    if (in_progress && *in_progress)
        return result_when_nested;
    const Write_mark mark(in_progress);
    return len == 0 ? 0 : _write(data, len);
}

bool Data_stream::write(const Binary_message& message, bool newline) {
    static constexpr unsigned char line_feed = '\n';
    const unsigned int size = message.get_size();
    const bool whole = __write(message.get_ptr(), size) == static_cast<int>(size);
    if (!newline)
        return whole;
    return __write(&line_feed, 1) == 1 && whole;
}

int Data_stream::write(Data_stream& source) {
    const Mutex_guard guard(source.buffer_lock);
    Cbuf_templ<unsigned char>& ring = source.rx_buffer;
    if (ring.empty())
        return 0;

    const bool wraps = ring.wraps();
    const auto first = ring.used_region();
    int written = __write(first.begin, first.size);
    if (written < 1)
        return written;
    ring.consume(static_cast<unsigned int>(written));
    if (!wraps || static_cast<unsigned int>(written) != first.size)
        return written;

    const auto second = ring.used_region(); // from the start of the storage on
    const int more = __write(second.begin, second.size);
    if (more > 0) {
        ring.consume(static_cast<unsigned int>(more));
        written += more;
    }
    return written;
}

bool Data_stream::vprintf(const char* format, va_list arguments) {
    char text[printf_size];
    const int length = vsnprintf(text, sizeof text, format, arguments);
    if (length < 0)
        return false;
    if (debug_writes)
        Debug::Print::printd(text, -1);
    const unsigned int sent = std::min(static_cast<unsigned int>(length), printf_size);
    return __write(reinterpret_cast<const unsigned char*>(text), sent) != 0;
}

bool Data_stream::printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool result = vprintf(format, arguments);
    va_end(arguments);
    return result;
}

/// Bytes of the ring, copied so that they can be printed without its lock.
struct Data_stream::Traced_bytes {
    void print(const char* tag) const {
        Debug::Print::dprint_ts("%s[", tag);
        Debug::Print::printascii(bytes, count);
        Debug::Print::dprint("]\n");
    }

    unsigned int count;
    unsigned char bytes[rx_capacity];
};

void Data_stream::dprint(const char* tag, unsigned int len, unsigned int offset) {
    Traced_bytes traced;
    {
        const Mutex_guard guard(buffer_lock);
        copy_for_trace(traced, len, offset);
    }
    traced.print(tag);
}

void Data_stream::_dprint(const char* tag, unsigned int len, unsigned int offset) {
    Traced_bytes traced;
    copy_for_trace(traced, len, offset);
    traced.print(tag);
}

void Data_stream::copy_for_trace(Traced_bytes& traced, unsigned int len, unsigned int offset) const {
    const bool all_there = len != 0 && std::uint64_t{offset} + len <= rx_buffer.size();
    traced.count = rx_buffer.peek(traced.bytes, all_there ? len : rx_capacity, offset);
}

bool Data_stream::set_description(const char* text) {
    const std::lock_guard guard(description_lock);
    stzncpy(description_, text, sizeof description_);
    return true;
}

std::array<char, Data_stream::description_size> Data_stream::copy_description() const {
    std::array<char, description_size> copy;
    const std::lock_guard guard(description_lock);
    stzncpy(copy.data(), description_, copy.size());
    return copy;
}

void Data_stream::format_description(const char* format, ...) {
    char text[description_size];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    set_description(text);
}
