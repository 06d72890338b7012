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
/// A reader that needs more bytes than are buffered reads the file. Written bytes go to the store at once. The base's
/// `rx_count` and `tx_count` count the bytes.
///
/// **Events.** Up to `max_waiters` waiters are notified, with an event of the class's module id, when the store is full
/// or takes a write in part only. `is_event` recognises such an event; `events_t` is its code.
///
/// **Closing** is the caller's duty: destroying a stream with a file open ends the process.
///
/// **Threads.** An object is for one thread at a time. One lock of the class guards what the objects share: the free
/// space, the waiters, the module id. The static operations acquire it where they need it. `_write` holds it all the
/// time, also while the store works and while events are sent. So nothing that a write calls may call the class: no
/// waiter, and no sink of the debug printer.
class GLUE_EXPORT PCFile_data_stream : public Data_stream {
  public:
    /// Codes of the events.
    enum events_t {
        short_write = 0, ///< the store took fewer bytes than it was given
        store_full = 1,  ///< the store is full, or has no free space for a copy or a file opened for writing
    };

    /// Results of opening and closing. `open_read` also returns other codes, of the store.
    enum result_t {
        success = 0,
        gave_up = 1,     ///< all attempts of `open_write` failed
        no_file = 3,     ///< the store is not mounted or, for reading, has no such file
        wrong_state = 4, ///< already open, not open, too few attempts, or a failed close
    };

    /// The result of `_write` when no file is open for writing or the store is full.
    static constexpr int not_written = -4;

    /// The most waiters that can be registered at a time.
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
    /// \param attempts  the most attempts, `retry_delay` apart, while the store is busy; 0: no limit and no delay,
    ///                  which uses a whole processor
    /// \return `success`; `wrong_state` when a file is already open, when `attempts` is negative, or when the store is
    ///         still busy after the last attempt; `no_file`; the store's own code for another failure
    [[nodiscard]] int open_read(const char* name, int attempts);

    /// Opens a file for writing at its end. Creates a missing one.
    /// \param attempts  the most attempts, `retry_delay` apart
    /// \return `success`; `gave_up`, at once for 0 attempts or fewer; `no_file` when the store is not mounted;
    ///         `wrong_state` when a file is already open, or, after the event `store_full`, when the store has no free
    ///         space or does not know it. Each failure is reported through the debug printer.
    [[nodiscard]] int open_write(const char* name, int attempts);

    /// \return the store's result, 0 for success; `wrong_state`, after a message, when no file is open for reading
    int close_read();

    /// Waits until the written bytes are on the medium.
    /// \return `success`; `wrong_state`, after a message, when that failed or no file is open for writing
    [[nodiscard]] int close_write();

    using Data_stream::get_data;
    /// Reads `n` bytes from the file into the ring, in pieces of up to 32. Bytes that do not fit the ring are dropped.
    /// \return 1 when `n` bytes were read, at once for an `n` of 0 or less; 0 after the end of the file or an error,
    ///         with the bytes before it in the ring; 0, after a message, when no file is open for reading
    int get_data(int n) override;

    /// Writes at the end of the file. A write that the store takes in part, or that does not fit, closes the file and
    /// notifies the waiters (`short_write`, `store_full`).
    ///
    /// On purpose, a write that does not fit while more than 10 bytes are free ends the process: the caller must check
    /// the free space first, or write in small pieces.
    /// \return the bytes written; `not_written` when no file is open for writing or the store is full
    int _write(const unsigned char* data, unsigned int len) override;

    /// Bytes read since the last `open_read`.
    std::uint32_t get_read_position() const { return read_position_; }

    // ---- The store as a whole ----

    /// Obtains the module id of the class, the source of its events. Ends the process with `exit_no_module_id` when
    /// there is none left. Call it once, before waiters are registered.
    static void static_init(module_man& modules);

    /// \return whether the store has such a file; false, after a message, when it is not mounted
    static bool exists(const char* name);
    /// \return 0 when the file was removed, else 1
    static int remove(const char* name);
    /// \return non-zero while the store is mounted
    static int mounted();
    /// \return the store's directory
    static const char* get_directory();
    /// The bytes in use, and the store's capacity in bytes. \return non-zero; 0, with both 0, when the store does not
    /// know them
    static int get_free_space(unsigned int& used, unsigned int& total);

    /// Copies a file in blocks of 500 bytes. Both files are opened again for each block, with up to 6 attempts,
    /// `retry_delay` apart. `to` is removed first: copying a file onto itself destroys it.
    ///
    /// On purpose: copying an empty file fails, with `to` removed; after the first block a read that fails counts as
    /// the end of the file; whether a block is on the medium is not checked.
    /// \return true when anything was copied and nothing failed. After a failure `to` holds the blocks before it. When
    ///         a block does not fit, the waiters get `store_full`.
    [[nodiscard]] static bool copy(const char* to, const char* from);

    // ---- Events ----

    /// \return 0; 1, with nothing changed, when `waiter` is null or registered, or when `max_waiters` are registered
    static int register_waiter(waiter_descriptor* waiter);
    /// The others keep their order. \return 0; 1 when `waiter` is not registered
    static int deregister_waiter(waiter_descriptor* waiter);
    /// \return whether the event comes from this class. Takes no lock.
    static bool is_event(const waiter_event& event);
    /// Sends an event to every registered waiter, in the order of registration.
    static void send_event(events_t code);

    /// Iterates over the names of the store's files.
    ///
    ///     for (PCFile_data_stream::Iterator file; const char* name = file.get_name(); file.next())
    ///         std::puts(name);
    ///
    /// Files that are created or removed meanwhile may make it skip a name or return one twice; `reset` starts again.
    class GLUE_EXPORT Iterator {
      public:
        /// Starts at the first file. A store that is not mounted is reported, and has no files.
        Iterator();
        /// Goes back to the first file, and gets the present number of files.
        void reset();
        /// \return the current name, up to 39 characters, which the iterator owns and the next call overwrites; null
        ///         past the last file or, after a message, when the store does not know the name
        const char* get_name();
        /// Goes to the next file, unless it is past the last one. \return its index
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
    int write_piece(const unsigned char* data, unsigned int len);
    static void _send_event(events_t code);
    static bool copy_block(const char* to, const unsigned char* block, int count);

    bool read_open_;
    bool write_open_;
    std::uint32_t read_position_;

    static Mutex mutex; ///< guards the members that follow
    static PcfInfo pcf_info;
    static Waiters waiters;
    static std::atomic<std::int16_t> module_id; ///< `is_event` reads it without the lock
};
