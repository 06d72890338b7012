#pragma once

#include <glue/data_stream/Data_stream.h>

#include <platform/pcf.h>

#include <atomic>
#include <cstdint>

class module_man;
class waiter_descriptor;
struct waiter_event;

/// A stream over one file of the platform's file store, and the operations on the store as a whole.
///
///     PCFile_data_stream file;
///     if (file.open_write("setup", 5) == 0) {      // at its end; five attempts
///         file.printf("wheelbase %d\n", 2890);
///         const bool kept = file.close_write() == 0;
///     }
///
/// A reader who asks for more bytes than are buffered reads the file; what is written goes to the store at once. The
/// base's `rx_count` and `tx_count` count the bytes.
///
/// **Events.** Up to `max_waiters` waiters hear, with an event of the class's module id, when the store is full or a
/// write fell short: `is_event` recognises one, `events_t` is its code.
///
/// **Closing** is the caller's duty: destroying a stream with a file open ends the process.
///
/// **Threads.** An object is for one thread at a time. What the objects share (the free space, the waiters, the module
/// id) is under one lock of the class, which the static operations take where they need it, as does `_write`, for its
/// whole run, the store's work and its events included. So nothing that a write calls may call back into the class: not
/// a waiter, and not a sink of the debug printer.
class GLUE_EXPORT PCFile_data_stream : public Data_stream {
  public:
    /// Codes of the events.
    enum events_t {
        short_write = 0, ///< the store took fewer bytes than it was given
        store_full = 1,  ///< the store is full, or a copy or an opening for writing found no room
    };

    /// What the opening and closing operations return. `open_read` passes other codes of the store on.
    enum result_t {
        success = 0,
        gave_up = 1,     ///< `open_write` used its attempts up
        no_file = 3,     ///< the store is not mounted or, for reading, has no such file
        wrong_state = 4, ///< open already or not open, a negative number of attempts, attempts used up, a failed close
    };

    /// `_write` returns it when no file is open for writing or the store is full.
    static constexpr int not_written = -4;

    /// Waiters that can be registered at a time.
    static constexpr unsigned max_waiters = 10;

    /// Milliseconds between two attempts.
    static constexpr int retry_delay = 100;

    /// Exit codes of a process that ends because a file is open at destruction, or because there is no module id.
    static constexpr int exit_still_open = -155;
    static constexpr int exit_no_module_id = -132;

    /// A stream with no file open.
    PCFile_data_stream();
    /// On purpose ends the process, with `exit_still_open` after a message, when a file is open.
    ~PCFile_data_stream() override;

    // ---- Opening and closing ----

    /// Opens a file for reading from its start. Sets `read_position` to 0, also when it fails.
    /// \param attempts  how often to try, `retry_delay` apart, while the store is busy; 0: without limit and without
    ///                  waiting, which takes the processor
    /// \return `success`; `wrong_state` when a file is open already, `attempts` is negative or used up; `no_file`; or
    ///         the store's own code when that fails in another way
    int open_read(const char* name, int attempts);

    /// Opens a file for writing at its end, after making it when it is not there.
    /// \param attempts  how often to try, `retry_delay` apart
    /// \return `success`; `gave_up`, at once for 0 attempts or less; `no_file` when the store is not mounted;
    ///         `wrong_state` when a file is open already, or, after telling the waiters `store_full`, when the store
    ///         has no room or cannot say. Messages through the debug printer tell why.
    int open_write(const char* name, int attempts);

    /// \return what the store returned, 0 for success; `wrong_state`, after a message, when no file is open for reading
    int close_read();

    /// Waits until the medium has what was written.
    /// \return `success`; `wrong_state`, after a message, when that failed or no file is open for writing
    int close_write();

    using Data_stream::get_data;
    /// Reads `n` bytes from the file into the ring, in pieces of up to 32. Bytes that find the ring full are lost.
    /// \return 1 when `n` bytes were read, at once for an `n` of 0 or less; 0 when the end of the file or an error came
    ///         before that, with the bytes that came in the ring; 0, after a message, when no file is open for reading
    int get_data(int n) override;

    /// Writes at the end of the file. A write that falls short or does not fit closes the file and tells the waiters
    /// (`short_write`, `store_full`).
    ///
    /// On purpose, a write that does not fit while more than 10 bytes are free ends the process: the caller asks for
    /// the free space before, or writes in small pieces.
    /// \return the bytes written; `not_written` when no file is open for writing or the store is full
    int _write(const unsigned char* data, unsigned int len) override;

    /// Bytes read since the last `open_read`.
    std::uint32_t get_read_position() const { return read_position_; }

    // ---- The store as a whole ----

    /// Gives the class its module id, the source of its events; ends the process with `exit_no_module_id` when there is
    /// none. Call it once, before waiters are registered.
    static void static_init(module_man& modules);

    /// \return whether the store has such a file; false, after a message, when it is not mounted
    static bool exists(const char* name);
    /// \return 0 when the file was removed, else 1
    static int remove(const char* name);
    /// \return non-zero while the store is mounted
    static int mounted();
    /// \return the store's directory
    static const char* get_directory();
    /// Bytes in use, and bytes that the store may hold in all. \return non-zero; 0, with both 0, when the store cannot
    /// say
    static int get_free_space(unsigned int& used, unsigned int& total);

    /// Copies a file, in blocks of 500 bytes for each of which both files are opened anew, up to 6 times, `retry_delay`
    /// apart, while the store does not let them. `to` is removed first: copying a file onto itself destroys it.
    ///
    /// On purpose: copying an empty file fails, with `to` gone; a read that fails once something was copied counts as
    /// the end; whether the last block is on the medium is not looked at.
    /// \return true when anything was copied and nothing failed. After a failure `to` holds what was copied till then.
    ///         Without room for a block the waiters are told `store_full`.
    static bool copy(const char* to, const char* from);

    // ---- Events ----

    /// \return 0; 1, with nothing changed, when `waiter` is null or registered already, or `max_waiters` are
    static int register_waiter(waiter_descriptor* waiter);
    /// The others keep their order. \return 0; 1 when `waiter` is not registered
    static int deregister_waiter(waiter_descriptor* waiter);
    /// \return whether the event comes from this class. Takes no lock.
    static bool is_event(const waiter_event& event);
    /// Sends every registered waiter an event, in the order of their registration.
    static void send_event(events_t code);

    /// Goes through the names of the store's files.
    ///
    ///     for (PCFile_data_stream::Iterator file; const char* name = file.get_name(); file.next())
    ///         std::puts(name);
    ///
    /// Files that are made or removed meanwhile may make it miss a name or give one twice; `reset` starts anew.
    class GLUE_EXPORT Iterator {
      public:
        /// At the first file. A message tells when the store is not mounted; there are no files then.
        Iterator();
        /// Back to the first file, with the number of files as it is now.
        void reset();
        /// \return the current name, up to 39 characters, which the iterator owns and the next call overwrites; null
        ///         past the last file or, after a message, when the store cannot tell the name
        const char* get_name();
        /// Goes on, unless it is past the last file. \return the index that it stands at now
        unsigned int next();

      private:
        std::uint32_t index_;
        std::uint32_t count_;
        char name_[40];
    };

  private:
    struct Waiters {
        waiter_descriptor* registered[max_waiters];
        unsigned int count;
    };

    void reset_description();
    int write_what_fits(const unsigned char* data, unsigned int len);
    static void _send_event(events_t code);
    static bool copy_block(const char* to, const unsigned char* block, int count);

    bool read_open_;
    bool write_open_;
    std::uint32_t read_position_;

    static Mutex mutex; ///< guards what follows
    static PcfInfo pcf_info;
    static Waiters waiters;
    static std::atomic<std::int16_t> module_id; ///< read without the lock, by `is_event`
};
