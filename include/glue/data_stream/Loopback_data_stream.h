#pragma once

#include <glue/data_stream/Data_stream.h>

/// A stream from which the bytes written to it are read: up to `rx_capacity` bytes, in the order of writing.
///
/// **Threads.** For one thread, unless a derived class sets a `buffer_lock`; writes hold it too.
class GLUE_EXPORT Loopback_data_stream : public Data_stream {
  public:
    Loopback_data_stream();
    ~Loopback_data_stream() override;

    using Data_stream::get_data;

    /// There is nothing to fetch: written bytes are in the ring already.
    /// \return true for an `n` of 0 only
    int get_data(int n) override;

    /// Appends the bytes to the ring; those that do not fit are lost.
    /// \return the bytes stored
    int _write(const unsigned char* data, unsigned int len) override;
};
