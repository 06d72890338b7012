#pragma once

#include "logging/Log_file.h"
#include "logging/Owned_ring.h"

#include <deque>
#include <memory>

/// The bytes that wait to be written, and the files that they belong to. Not synchronised.
///
/// The bytes of one file follow those of the file before it. A file that is closed stays here until its last byte is
/// taken; the open file is always the last one.
class Log_queue {
  public:
    /// Bytes of one file.
    struct Piece {
        std::shared_ptr<Log_file> file;
        unsigned count;
        bool ends_file; ///< nothing follows: the file may be closed after this
    };

    /// Gives the queue free space for `capacity` bytes beyond those that it holds.
    void resize(unsigned capacity);

    /// The bytes that are appended from now on belong to this file. No other file is open.
    void open(std::shared_ptr<Log_file> file);
    /// Nothing more is appended for the open file, if there is one.
    void close();
    /// Removes the open file, to which no byte in the queue belongs. \return null when no file is open
    std::shared_ptr<Log_file> release();
    /// Null when no file is open.
    const std::shared_ptr<Log_file>& open_file() const { return open_.file; }

    /// Appends bytes for the open file. Takes nothing from the heap.
    /// \return false, with nothing appended, when they do not fit
    bool append(const unsigned char* bytes, unsigned count);

    /// Whether there is neither a byte to write nor a file to close.
    bool empty() const { return closed_.empty() && open_.bytes == 0; }
    /// Moves the oldest bytes, all of one file and at most `size`, to `buffer`. The queue is not empty.
    Piece take(unsigned char* buffer, unsigned size);

  private:
    struct Entry {
        std::shared_ptr<Log_file> file;
        unsigned bytes = 0; ///< that are in the ring
    };

    std::unique_ptr<Owned_ring<unsigned char>> ring_; ///< null until the first `resize`
    std::deque<Entry> closed_;                        ///< in the order of their bytes in the ring
    Entry open_;
};
