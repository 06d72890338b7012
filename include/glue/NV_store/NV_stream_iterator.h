#pragma once

#include <glue/export.h>

#include <platform/NV_iterator.h>

class Data_stream;

namespace NV_store {

/// Settings that travel over a stream: written to it as they come, read from what it receives.
///
///     NV_store::NV_stream_iterator link(stream);
///     link.set_mode(NV_store::NV_iterator::writing_all);
///     settings.serialise(&link);                          // whether the stream took it is not looked at
///
/// The mode says what is written, and which way bytes may go; it opens and closes nothing, and leaves what the stream
/// has buffered.
///
/// **Ownership.** The caller owns the stream, which outlives the iterator. **Threads.** Those of the stream.
class GLUE_EXPORT NV_stream_iterator : public NV_iterator {
  public:
    explicit NV_stream_iterator(Data_stream& stream);

    void set_mode(modes_t mode) override;
    /// \return whether the mode is `reading` and a byte is there; fetches when none is buffered
    bool is_readable() override;
    /// Writes to the stream, in the modes for writing and appending. On purpose true whatever the stream made of it:
    /// who has to know sees it by the stream.
    bool push_bytes(unsigned char* bytes, int count) override;
    /// Takes bytes out of the stream, in mode `reading`; fetches when too few are buffered. Too few: none is taken.
    bool pop_bytes(unsigned char* bytes, int count) override;
    bool peek_bytes(unsigned char* bytes, int count) override;
    /// 0 and 0: a stream has no size.
    void get_free_space(unsigned int& used, unsigned int& total) const override;

  protected:
    /// For iterators with a stream of their own, which they name with `use` before anything else.
    NV_stream_iterator() = default;
    void use(Data_stream& stream) { stream_ = &stream; }

    unsigned int byte_count_ = 0; ///< bytes written and read

  private:
    Data_stream* stream_ = nullptr;
};

} // namespace NV_store
