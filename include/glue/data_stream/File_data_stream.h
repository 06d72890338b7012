#pragma once

#include <glue/data_stream/Data_stream.h>

#include <cstdio>

/// A stream over plain files of the host: it reads one file, or appends to one, or both, independently.
///
/// It has no thread. A reader that needs more bytes than are buffered reads the file. Written bytes go to the C
/// library's buffer, and to the medium when the writing side is closed.
///
///     File_data_stream file;
///     file.open_read("/etc/unit/setup.ini");   // or the process ends
///     while (file.bytes_avail(1U))
///         take_a_line_from(file);
///
/// **Ownership.** The stream owns its handles, adopted ones included; closing and destroying close them.
///
/// **Threads.** It takes no lock: one thread at a time.
class GLUE_EXPORT File_data_stream : public Data_stream {
  public:
    /// Exit codes of a process that ends because a file cannot be opened.
    static constexpr int exit_cannot_read = -133;
    static constexpr int exit_cannot_write = -134;

    /// A stream with no file open.
    File_data_stream();
    /// Adopts two handles, one to read and one to write; either may be null.
    File_data_stream(std::FILE* in, std::FILE* out);

    /// Closes both sides as `close_read` and `close_write` do.
    ~File_data_stream() override;

    // ---- Opening ----
    //
    // On purpose, a file that cannot be opened ends the process with `exit_cannot_read` or `exit_cannot_write`, after
    // a message through the debug printer. So each operation returns true. Call `exists` first where that matters.
    //
    // Also on purpose, a file that is open on that side is not closed first: its handle leaks.

    bool open_read(const char* path);
    /// Adopts a descriptor that is open for reading.
    bool open_read(int fd);
    /// Opens for appending. Creates a missing file; never removes the content of another.
    bool open_write(const char* path);

    // ---- Closing ----

    /// \return false when no file is open for reading
    bool close_read();
    /// Waits until the written bytes are on the medium. \return false when no file is open for writing; on purpose true
    /// otherwise, also when the disk is full or fails
    bool close_write();

    /// \return false only when the file is missing: one that cannot be opened for another reason exists
    static bool exists(const char* path);

    using Data_stream::get_data;
    /// Reads `n` bytes from the file into the ring. Bytes that do not fit the ring are dropped.
    /// \return 1 when `n` bytes were read, at once for an `n` of 0; 0 after the end of the file or an error, with the
    ///         bytes before it in the ring, when no file is open, and when `n` is negative. A read of the last byte
    ///         returns 1; only the next read returns 0.
    int get_data(int n) override;

    /// Passes bytes to the C library's buffer.
    /// \return the bytes that it accepted; -1 when no file is open for writing
    int _write(const unsigned char* data, unsigned int len) override;

    /// The size of the file that is open for reading. Its position is left unchanged.
    /// \return bytes; -1 when no file is open for reading, when it has no size (a pipe), when the size does not fit an
    ///         int, or when the position cannot be restored and may have moved
    virtual int get_length() const;

  protected:
    std::FILE* read_file;
    std::FILE* write_file;

    /// Reports that a file cannot be opened.
    static void report_failed_opening(const char* path);
};
