#pragma once

#include <glue/data_stream/Data_stream.h>

#include <platform/Atime.h>

/// Releases the text of another stream, the inner stream, line by line.
///
/// Every reading operation first refills: it moves the bytes that the inner stream has buffered into a staging ring,
/// and releases the first line to the receive ring when that line is complete, that is, when a CR or LF has been
/// received. An incomplete line is released unchanged when nothing has been released for longer than the time-out.
/// Writes go directly to the inner stream.
///
///     Line_data_stream_adapter lines(500, &port);
///     while (unsigned length = lines.string_avail()) { ... }
///
/// On purpose, since readers rely on it:
/// - When the next line has begun, the last byte of the line end stays in the staging ring: of "ABC" CR LF "D" the
///   bytes "ABC" CR are released, and LF "D" stays. A line end at the end of the staged bytes is released whole. Line
///   ends before a line belong to it.
/// - A full ring never yields a line: when all 4200 bytes of the staging ring are used, they wait for the time-out,
///   even if they contain lines.
/// - Bytes that do not fit into the receive ring when they are released are lost; no line is released while the receive
///   ring holds a complete one. Bytes that do not fit into the staging ring stay in the inner stream.
/// - The adapter never fetches from the inner stream: something else must fill it, for example a thread of its own.
///
/// **Ownership.** The caller owns the inner stream, which outlives the adapter.
///
/// **Threads.** One thread at a time reads, and only that thread reads the inner stream. The ring has no lock here; if
/// a derived class sets one, it is held for every refill. Another thread may fill the inner stream by that stream's own
/// rules, which also apply to writes.
class GLUE_EXPORT Line_data_stream_adapter : public Data_stream {
  public:
    /// \param timeout_ms  time since the last release, or since construction, in units of `Atime`, after which an
    ///                    incomplete line is released; with a negative one all bytes are released at once
    Line_data_stream_adapter(int timeout_ms, Data_stream* inner_stream);
    ~Line_data_stream_adapter() override;

    /// Consumes `n` bytes of the receive ring as every stream does, then refills.
    void drop(unsigned int n) override;
    /// Clears the receive ring, then refills. Staged bytes are not dropped; the refill may release them.
    void drop_all() override;
    /// \return the number of bytes in the receive ring, after refilling
    unsigned int bytes_avail() override;

    /// `Data_stream::get_data`, after refilling.
    bool get_data(unsigned char* dst, unsigned int len, unsigned int offset) override;

    /// Refills; never waits. The caller holds the ring's lock if there is one.
    /// \return whether the receive ring now holds `n` bytes, old and new ones together
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
