#pragma once

#include <glue/data_stream/Data_stream.h>

/// Reads back what was written to it: up to `rx_capacity` bytes, in the order they were written.
///
/// **Threads.** For one thread, unless a derived class names a `buffer_lock`; writes hold it too.
class GLUE_EXPORT Loopback_data_stream : public Data_stream {
  public:
    Loopback_data_stream();
    ~Loopback_data_stream() override;

    using Data_stream::get_data;

    /// There is nothing to fetch: a read sees what was written.
    /// \return true for an `n` of 0 only
    int get_data(int n) override;

    /// Stores the bytes for the reader; those that do not fit are lost.
    /// \return the bytes stored
    int _write(const unsigned char* data, unsigned int len) override;
};
