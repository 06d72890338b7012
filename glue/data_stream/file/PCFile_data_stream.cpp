#include <glue/data_stream/PCFile_data_stream.h>

#include <platform/Atime.h>
#include <platform/Debug.h>
#include <platform/module_man.h>
#include <platform/waiter.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

// Each side of an object has two states. The sides are independent.
//
//     reading:   closed  ---- open_read ---->  open
//                        <--- close_read ----
//
//     writing:   closed  ---- open_write --->  open
//                        <--- close_write ---
//                        <--- a write that the store takes in part: the waiters get short_write
//                        <--- a write that does not fit: the waiters get store_full; more than 10 bytes free: abort
//
// Destroyed while a side is open: exit(exit_still_open).

namespace {

constexpr int store_busy = 1; // what `pcfOpenRead` returns then
constexpr int piece_size = 32;
constexpr int block_size = 500;
constexpr int attempts_to_copy = 6;
/// A write that does not fit while more than this is free comes from a broken caller.
constexpr std::uint32_t tolerated_free = 10;

// The failed check, in messages: numbers that the unit's service knows.
constexpr int site_exists = 207;
constexpr int site_write_already_open = 217;
constexpr int site_write_not_mounted = 222;
constexpr int site_write_no_space = 232;
constexpr int site_write_no_attempts = 237;
constexpr int site_write_open = 247;
constexpr int site_write_create = 250;

bool is_mounted() {
    return pcfIsMounted(nullptr) != 0;
}

struct Opened_for_writing {
    bool done;
    int site; ///< the call, for messages
};

/// Opens a file at its end, or creates a missing one.
Opened_for_writing open_for_writing(const char* name) {
    if (pcfExists(name) != 0)
        return {pcfOpenWrite(name, nullptr) != 0, site_write_open};
    return {pcfCreateWrite(name, nullptr) != 0, site_write_create};
}

/// Reads up to `size` bytes of the file that is open for reading. \return the bytes read; 0 or less for none
int read_piece(unsigned char* buffer, int size, PcfResult& result) {
    result = static_cast<PcfResult>(4); // a failure, unless the store sets it
    return pcfRead(buffer, size, result, 0);
}

/// Opens a file for reading at `offset`, and waits while the store is busy.
bool open_to_copy(const char* from, std::uint32_t offset) {
    for (int attempt = 1; attempt <= attempts_to_copy; ++attempt) {
        if (attempt > 1)
            Atime::delay(PCFile_data_stream::retry_delay);
        const int result = pcfOpenRead(from, offset, nullptr);
        if (result != store_busy)
            return result == 0;
    }
    return false;
}

void report_no_space(const char* name, unsigned int used, unsigned int total) {
    Debug::Print::dprint("PCF Datastream Failed %i (%s %u %u)\n", site_write_no_space, name, used, total);
}

[[noreturn]] void end_still_open(const char* message) {
    Debug::Print::dprint("%s", message);
    std::exit(PCFile_data_stream::exit_still_open);
}

} // namespace

Mutex PCFile_data_stream::mutex;
PcfInfo PCFile_data_stream::pcf_info{};
PCFile_data_stream::Waiters PCFile_data_stream::waiters{};
std::atomic<std::int16_t> PCFile_data_stream::module_id{0};

PCFile_data_stream::PCFile_data_stream() : read_open_(false), write_open_(false), read_position_(0) {
    reset_description();
}

PCFile_data_stream::~PCFile_data_stream() {
    if (read_open_)
        end_still_open("Destruct while files are read open!!");
    if (write_open_)
        end_still_open("Destruct while files are write open!!");
}

void PCFile_data_stream::reset_description() {
    format_description("DSPCF(%p)", static_cast<void*>(this));
}

// ---- Opening and closing ----

int PCFile_data_stream::open_read(const char* name, int attempts) {
    read_position_ = 0;
    if (read_open_)
        return wrong_state;
    if (!is_mounted() || pcfExists(name) == 0)
        return no_file;
    if (attempts < 0)
        return wrong_state;
    int result = pcfOpenRead(name, 0, nullptr);
    for (int attempt = 1; result == store_busy; ++attempt) {
        if (attempt == attempts)
            return wrong_state;
        if (attempts > 0)
            Atime::delay(retry_delay);
        result = pcfOpenRead(name, 0, nullptr);
    }
    if (result != 0)
        return result;
    read_open_ = true;
    format_description("DSPCF(%p, %s, r)", static_cast<void*>(this), name);
    return success;
}

int PCFile_data_stream::open_write(const char* name, int attempts) {
    if (write_open_) {
        Debug::Print::dprint("PCF Datastream Failed %i\n", site_write_already_open);
        return wrong_state;
    }
    if (!is_mounted()) {
        Debug::Print::dprint("PCF Datastream Failed %i\n", site_write_not_mounted);
        return no_file;
    }
    unsigned int used = 0xFFFFFFFF;
    unsigned int total = 0xFFFFFFFF;
    if (get_free_space(used, total) == 0 || total == used) {
        report_no_space(name, used, total);
        send_event(store_full);
        return wrong_state;
    }
    int site = site_write_no_attempts;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        if (attempt > 1)
            Atime::delay(retry_delay);
        const Opened_for_writing opened = open_for_writing(name);
        if (opened.done) {
            format_description("DSPCF(%p, %s, w)", static_cast<void*>(this), name);
            write_open_ = true;
            return success;
        }
        site = opened.site;
    }
    Debug::Print::dprint("PCFile_data_stream::open_write(%s, %d) failed @ %d\n", name, attempts, site);
    return gave_up;
}

int PCFile_data_stream::close_read() {
    reset_description();
    if (!read_open_) {
        Debug::Print::dprint("PCF read not open\n");
        return wrong_state;
    }
    read_open_ = false;
    return pcfCloseRead(0);
}

int PCFile_data_stream::close_write() {
    reset_description();
    if (!write_open_) {
        Debug::Print::dprint("PCF write not open\n");
        return wrong_state;
    }
    write_open_ = false;
    if (pcfCloseWrite(-1) == 0) {
        Debug::Print::dprint("PCF failed to close\n");
        return wrong_state;
    }
    return success;
}

// ---- Reading and writing ----

int PCFile_data_stream::get_data(int n) {
    if (!read_open_) {
        Debug::Print::dprint("PCF read not open\n");
        return 0;
    }
    while (n > 0) {
        unsigned char piece[piece_size];
        PcfResult result;
        const int count = read_piece(piece, std::min(n, piece_size), result);
        if (result != 0 || count < 1)
            return 0;
        const auto received = static_cast<std::uint32_t>(count);
        rx_count += received;
        read_position_ += received;
        rx_buffer.append(piece, received);
        n -= count;
    }
    return 1;
}

int PCFile_data_stream::_write(const unsigned char* data, unsigned int len) {
    const std::lock_guard guard(mutex);
    if (!write_open_)
        return not_written;
    if (pcf_info.free >= len)
        return write_piece(data, len);
    _send_event(store_full);
    Debug::Print::dprint("PCF full\n");
    static_cast<void>(close_write());     // reports its failure
    if (pcf_info.free > tolerated_free) { // on purpose: the caller is broken
        Debug::Print::critical("ABORT!!! PCFile_data_stream::_write pcf_info.free > 10\n");
        std::abort();
    }
    return not_written;
}

/// Writes bytes for which the store has free space. Called with the lock held.
int PCFile_data_stream::write_piece(const unsigned char* data, unsigned int len) {
    const int written = pcfWrite(data, static_cast<int>(len), -1);
    if (written == static_cast<int>(len)) {
        pcf_info.free -= len;
        tx_count += len;
        return written;
    }
    Debug::Print::dprint("PCF did not write %d!=%d\n", static_cast<int>(len), written);
    static_cast<void>(close_write()); // reports its failure
    _send_event(short_write);
    return written;
}

// ---- The store as a whole ----

void PCFile_data_stream::static_init(module_man& modules) {
    std::int16_t id = 0;
    {
        const std::lock_guard guard(mutex);
        if (modules.init_module(&id, false) == 0) {
            module_id = id;
            return;
        }
    }
    std::exit(exit_no_module_id);
}

bool PCFile_data_stream::exists(const char* name) {
    if (!is_mounted()) {
        Debug::Print::dprint("PCF Datastream Failed %i (%s)\n", site_exists, name);
        return false;
    }
    return pcfExists(name) != 0;
}

int PCFile_data_stream::remove(const char* name) {
    return pcfRemove(name) == 0 ? 1 : 0;
}

int PCFile_data_stream::mounted() {
    return pcfIsMounted(nullptr);
}

const char* PCFile_data_stream::get_directory() {
    return pcfDirectory();
}

int PCFile_data_stream::get_free_space(unsigned int& used, unsigned int& total) {
    const std::lock_guard guard(mutex);
    const int result = pcfInfo(pcf_info);
    used = result != 0 ? pcf_info.total - pcf_info.free : 0;
    total = result != 0 ? pcf_info.total : 0;
    return result;
}

bool PCFile_data_stream::copy(const char* to, const char* from) {
    if (!is_mounted() || pcfExists(from) == 0)
        return false;
    if (pcfExists(to) != 0)
        pcfRemove(to);
    pcfRemove(to); // a second time in any case, on purpose
    for (std::uint32_t offset = 0;;) {
        if (!open_to_copy(from, offset))
            return false;
        unsigned char block[block_size];
        PcfResult ignored;
        const int count = read_piece(block, block_size, ignored);
        pcfCloseRead(0);
        if (count < 1)
            return offset != 0;
        if (!copy_block(to, block, count))
            return false;
        offset += static_cast<std::uint32_t>(count);
    }
}

/// Appends a block to a file. Sends the waiters `store_full` when it does not fit.
bool PCFile_data_stream::copy_block(const char* to, const unsigned char* block, int count) {
    unsigned int used = 0;
    unsigned int total = 0;
    if (get_free_space(used, total) == 0 || static_cast<unsigned int>(count) > total - used) {
        send_event(store_full);
        return false;
    }
    for (int attempt = 1; !open_for_writing(to).done; ++attempt) {
        if (attempt == attempts_to_copy)
            return false;
        Atime::delay(retry_delay);
    }
    const int written = pcfWrite(block, count, -1);
    static_cast<void>(pcfCloseWrite(-1)); // on purpose: the count alone decides
    return written >= count;
}

// ---- Events ----

int PCFile_data_stream::register_waiter(waiter_descriptor* waiter) {
    const std::lock_guard guard(mutex);
    auto* const end = waiters.registered + waiters.count;
    if (!waiter || waiters.count == max_waiters || std::find(waiters.registered, end, waiter) != end)
        return 1;
    waiters.registered[waiters.count++] = waiter;
    return 0;
}

int PCFile_data_stream::deregister_waiter(waiter_descriptor* waiter) {
    const std::lock_guard guard(mutex);
    auto* const end = waiters.registered + waiters.count;
    auto* const found = std::find(waiters.registered, end, waiter);
    if (found == end)
        return 1;
    std::move(found + 1, end, found);
    --waiters.count;
    return 0;
}

bool PCFile_data_stream::is_event(const waiter_event& event) {
    return event.source == module_id;
}

void PCFile_data_stream::send_event(events_t code) {
    const std::lock_guard guard(mutex);
    _send_event(code);
}

/// `send_event` with the lock held.
void PCFile_data_stream::_send_event(events_t code) {
    waiter_event event;
    event.source = module_id;
    event.code = code;
    for (unsigned int i = 0; i < waiters.count; ++i)
        waiters.registered[i]->send_event(event, true, false);
    release_payload(event); // unless a waiter owns it now
}

// ---- The names of the files ----

PCFile_data_stream::Iterator::Iterator() : index_(0), count_(0), name_{} {
    if (!is_mounted())
        Debug::Print::dprint("PCF cannot iterate\n");
    reset();
}

void PCFile_data_stream::Iterator::reset() {
    index_ = 0;
    count_ = static_cast<std::uint32_t>(pcfGetNumFiles());
}

const char* PCFile_data_stream::Iterator::get_name() {
    if (index_ >= count_)
        return nullptr;
    if (pcfGetFileName(static_cast<int>(index_), name_) == 0) {
        Debug::Print::dprint("PCF broken file\n");
        return nullptr;
    }
    name_[sizeof name_ - 1] = '\0';
    return name_;
}

unsigned int PCFile_data_stream::Iterator::next() {
    if (index_ < count_)
        ++index_;
    return index_;
}
