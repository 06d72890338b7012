#pragma once

#include <glue/data_stream/Data_stream.h>

/// A second receive ring over another stream, the inner stream, so that a reader with a ring of its own can sit on it.
///
/// Whenever somebody reads, every byte that the inner stream has buffered moves into this stream's ring; what finds no
/// room stays in the inner stream. Writes go straight to the inner stream.
///
///     Restream_data_stream_adapter restream(&port);
///     Vesk_parser parser(&restream, false);
///
/// On purpose the inner stream is asked only for what it has buffered already, never to fetch: it must be one that is
/// filled by a thread of its own or by somebody else, or nothing ever comes out here.
///
/// **Ownership.** The inner stream stays its owner's and outlives this one; it is left alone at the end.
///
/// **Threads.** One thread reads at a time, and none but it reads the inner stream: the ring has no lock here. The
/// inner stream may be filled by another thread under its own rules, which hold for writes too.
class GLUE_EXPORT Restream_data_stream_adapter : public Data_stream {
  public:
    explicit Restream_data_stream_adapter(Data_stream* inner_stream);
    ~Restream_data_stream_adapter() override;

    /// Takes `n` bytes out of the ring, after refilling it, and refills it again. Of fewer buffered bytes all are
    /// taken.
    void drop(unsigned int n) override;
    /// Empties the ring, after refilling it, and refills it again: what did not fit before is there afterwards.
    void drop_all() override;
    /// \return the number of buffered bytes, after refilling
    unsigned int bytes_avail() override;

    /// `Data_stream::get_data`, after refilling.
    bool get_data(unsigned char* dst, unsigned int len, unsigned int offset) override;

    /// Refills. On purpose it tells nothing about `n`, so that `bytes_avail(n)` always says yes.
    /// \return 1, as no refilling makes the ring shorter
    int get_data(int n) override;

    /// Writes to the inner stream. \return what its `__write` returned
    int _write(const unsigned char* data, unsigned int len) override;

    using Data_stream::bytes_avail;

  private:
    void refill();

    Data_stream* inner_;
};
