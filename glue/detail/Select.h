#pragma once

#include <glue/data_stream/Data_stream.h>

#include <atomic>
#include <cstdint>
#include <sys/select.h>
#include <sys/time.h>

namespace glue_detail {

/// The descriptors of a stream that one `select` waits for.
///
///     Select select(stream, high_descriptor_reported_);
///     timeval limit = Select::limit_of(200);
///     if (select.add_reading(fd) && select.wait(&limit) > 0 && select.is_readable(fd))
///         ...
///
/// `select` knows descriptors below FD_SETSIZE (1024); the bit of a higher one would lie outside its sets. Such a
/// descriptor is refused, and the first one of each stream is reported on standard error.
class Select {
  public:
    /// \param stream         its description is in the report
    /// \param high_reported  the stream's own, false at first: whether it has reported a descriptor already
    Select(const Data_stream& stream, std::atomic<bool>& high_reported);

    /// \return whether it can be waited for: false for a negative descriptor and for one that is too high
    bool add_reading(int fd);
    bool add_writing(int fd);
    /// Includes a descriptor in the count that `select` gets, but in no set. One that is too high counts as the
    /// highest possible one.
    void count_in(int fd);

    /// \param limit  null for no time limit; the system subtracts the time that it waited
    /// \return as `select`
    int wait(timeval* limit);

    bool is_readable(int fd) const { return FD_ISSET(fd, &readable_); }
    bool is_writable(int fd) const { return FD_ISSET(fd, &writable_); }

    static timeval limit_of(std::int64_t ms);

  private:
    bool add(int fd, fd_set& set);
    void report_high(int fd);

    const Data_stream& stream_;
    std::atomic<bool>& high_reported_;
    fd_set readable_;
    fd_set writable_;
    int highest_ = -1;
};

} // namespace glue_detail
