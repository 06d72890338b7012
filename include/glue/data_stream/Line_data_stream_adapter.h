#pragma once

#include <glue/data_stream/Data_stream.h>

#include <platform/Atime.h>

/// Releases the text of another stream, the inner stream, line by line.
///
/// Whenever somebody reads, what the inner stream has buffered is taken and staged, and the first line of it moves on
/// to the receive ring once it is complete: once a CR or LF has come. A line that stays incomplete is released as it is
/// when nothing has been released for longer than the time-out. Writes go straight to the inner stream.
///
///     Line_data_stream_adapter lines(500, &port);
///     while (unsigned length = lines.string_avail()) { ... }
///
/// Kept on purpose, and relied on:
/// - A line whose successor has begun already leaves the last byte of its line end behind: of "ABC" CR LF "D", "ABC" CR
///   is released, and LF "D" stays. A line end that ends what is staged goes out whole. Line ends in front of a line
///   count with it.
/// - A full ring never yields a line: a staging ring of 4200 bytes waits for the time-out even when lines are in it.
/// - What finds no room in the receive ring at its release is lost; no next line is released while a complete one is
///   there. What finds no room in the staging ring stays in the inner stream.
/// - The inner stream is asked only for what it has buffered already, never to fetch: it must be one that is filled by
///   a thread of its own or by somebody else.
///
/// **Ownership.** The inner stream stays its owner's and outlives this one; it is left alone at the end.
///
/// **Threads.** One thread reads at a time, and none but it reads the inner stream. The ring has no lock here; a
/// derived class that names one has every refilling done under it. The inner stream may be filled by another thread
/// under its own rules, which hold for writes too.
class GLUE_EXPORT Line_data_stream_adapter : public Data_stream {
  public:
    /// \param timeout_ms  (units of `Atime`) since the last release, or since construction, after which an
    ///                 incomplete line goes out; a negative one holds nothing back
    Line_data_stream_adapter(int timeout_ms, Data_stream* inner_stream);
    ~Line_data_stream_adapter() override;

    /// Takes `n` bytes out of the ring as every stream does, then refills it.
    void drop(unsigned int n) override;
    /// Empties the ring, then refills it. What is staged is not dropped but may be what it is refilled with.
    void drop_all() override;
    /// \return the number of bytes released and not taken yet, after refilling
    unsigned int bytes_avail() override;

    /// `Data_stream::get_data`, after refilling.
    bool get_data(unsigned char* dst, unsigned int len, unsigned int offset) override;

    /// Refills; never waits. Called with the ring's lock held, when there is one.
    /// \return whether `n` bytes are in the ring now, old and new ones together
    int get_data(int n) override;

    /// Writes to the inner stream. \return what its `__write` returned
    int _write(const unsigned char* data, unsigned int len) override;

    using Data_stream::_get_data;
    using Data_stream::bytes_avail;

  private:
    int _get_data();
    void refill();
    void stage();
    unsigned int releasable(Atime now) const;
    void release(unsigned int count);

    int timeout_;
    Atime last_release_;
    Data_stream* inner_;
    Cbuf_templ<unsigned char> staging_;
    unsigned char staging_storage_[rx_capacity];
};
