#pragma once

#include <glue/export.h>

#include <platform/NV_iterator.h>

namespace NV_store {

/// Settings in memory that the caller owns: a buffer with a capacity, valid data at its beginning, and a reading
/// position.
///
///     unsigned char bytes[4096];
///     NV_store::NV_buffer_iterator it(bytes, sizeof bytes, 0);
///     it.set_mode(NV_store::NV_iterator::writing_all);
///     if (settings.serialise(&it))
///         send(bytes, it.length());
///     it.set_mode(NV_store::NV_iterator::reading);
///     settings.deserialise(&it);
///
/// The mode selects what is written. It opens and closes nothing, and bytes can be moved in every mode.
class GLUE_EXPORT NV_buffer_iterator : public NV_iterator {
  public:
    /// Without a buffer: capacity and length are 0.
    NV_buffer_iterator() = default;
    NV_buffer_iterator(unsigned char* buffer, int capacity, int length);

    void set_mode(modes_t mode) override;
    /// \return true
    bool is_readable() override;
    bool push_bytes(unsigned char* bytes, int count) override;
    bool pop_bytes(unsigned char* bytes, int count) override;
    bool peek_bytes(unsigned char* bytes, int count) override;
    /// The length and the capacity.
    void get_free_space(unsigned int& used, unsigned int& total) const override;

    /// Uses another buffer, reading from its beginning.
    void set_buffer(unsigned char* buffer, int capacity, int length);
    /// Reads from the beginning again.
    void reset_reading();
    /// Drops the data: the next push writes to the buffer's beginning. The reading position is left unchanged; while it
    /// is beyond the data, nothing can be read.
    void reset_writing();

    /// Bytes of valid data.
    int length() const { return length_; }

  private:
    unsigned char* buffer_ = nullptr;
    int capacity_ = 0;
    int length_ = 0;
    int position_ = 0;
};

} // namespace NV_store
