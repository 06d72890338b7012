#pragma once

#include <glue/data_stream/Data_stream.h>

/// A second receive ring over another stream, the inner stream: a reader with a ring of its own reads through it.
///
/// Every reading operation first refills: it moves the bytes that the inner stream has buffered into this stream's
/// ring; those that do not fit stay in the inner stream. Writes go directly to the inner stream.
///
///     Restream_data_stream_adapter restream(&port);
///     Vesk_parser parser(&restream, false);
///
/// On purpose the adapter never fetches from the inner stream: something else must fill it, for example its own thread.
///
/// **Ownership.** The caller owns the inner stream, which outlives the adapter.
///
/// **Threads.** One thread at a time reads, and only that thread reads the inner stream: the ring has no lock here.
/// Another thread may fill the inner stream by that stream's own rules, which also apply to writes.
class GLUE_EXPORT Restream_data_stream_adapter : public Data_stream {
  public:
    explicit Restream_data_stream_adapter(Data_stream* inner_stream);
    ~Restream_data_stream_adapter() override;

    /// Refills, consumes `n` bytes of the ring, or all if there are fewer, and refills again.
    void drop(unsigned int n) override;
    /// Refills, clears the ring and refills again: the ring then holds the bytes that did not fit before.
    void drop_all() override;
    /// \return the number of buffered bytes, after refilling
    unsigned int bytes_avail() override;

    /// `Data_stream::get_data`, after refilling.
    bool get_data(unsigned char* dst, unsigned int len, unsigned int offset) override;

    /// Refills. On purpose `n` is not used, so that `bytes_avail(n)` is always true.
    /// \return 1, as a refill never makes the ring shorter
    int get_data(int n) override;

    /// Writes to the inner stream. \return what its `__write` returned
    int _write(const unsigned char* data, unsigned int len) override;

    using Data_stream::bytes_avail;

  private:
    void refill();

    Data_stream* inner_;
};
