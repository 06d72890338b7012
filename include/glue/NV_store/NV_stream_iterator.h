#pragma once

#include <glue/export.h>

#include <platform/NV_iterator.h>

class Data_stream;

namespace NV_store {

/// Settings over a stream: written to it, read from the bytes that it receives.
///
///     NV_store::NV_stream_iterator link(stream);
///     link.set_mode(NV_store::NV_iterator::writing_all);
///     const bool complete = settings.serialise(&link);    // also true when the stream dropped bytes
///
/// The mode selects what is written, and the direction of the bytes. It opens and closes nothing, and leaves buffered
/// bytes in the stream.
///
/// **Ownership.** The caller owns the stream, which outlives the iterator. **Threads.** Those of the stream.
class GLUE_EXPORT NV_stream_iterator : public NV_iterator {
  public:
    explicit NV_stream_iterator(Data_stream& stream);

    void set_mode(modes_t mode) override;
    /// \return whether the mode is `reading` and a byte is available; fetches when none is buffered
    bool is_readable() override;
    /// Writes to the stream, in the modes for writing and appending. On purpose true whether or not the stream took the
    /// bytes: the stream itself reports that.
    bool push_bytes(unsigned char* bytes, int count) override;
    /// Consumes bytes of the stream, in mode `reading`; fetches when too few are buffered. Too few: consumes none.
    bool pop_bytes(unsigned char* bytes, int count) override;
    bool peek_bytes(unsigned char* bytes, int count) override;
    /// 0 and 0: a stream has no size.
    void get_free_space(unsigned int& used, unsigned int& total) const override;

  protected:
    /// For iterators with a stream of their own: they pass it to `use` first.
    NV_stream_iterator() = default;
    void use(Data_stream& stream) { stream_ = &stream; }

    unsigned int byte_count_ = 0; ///< bytes written and read

  private:
    Data_stream* stream_ = nullptr;
};

} // namespace NV_store
