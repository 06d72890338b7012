#pragma once

#include <cstdint>

namespace NV_store {

class NV_item;

/// Writes and reads settings: turns typed values and headers into bytes, and updates the registered checksums. The
/// derived classes move the bytes.
///
/// Numbers are little-endian unless the options say otherwise. A bool is one byte: 0 or 1 when written; when read,
/// every value except 0 is true. A header is one 32-bit number: type byte (bits 31 to 24), kind (23 to 16), id (15 to
/// 0). Not synchronised.
class NV_iterator {
  public:
    /// What an iterator is open for, and, for writing, which items are included.
    enum modes_t {
        closed = 0,
        reading = 1,
        writing_all = 2,       ///< from the start, every item
        writing_set = 3,       ///< from the start, items that have been set or loaded
        appending_written = 4, ///< at the end, items reported as written since they were saved
        appending_changed = 5  ///< at the end, items whose value has changed since they were saved
    };

    /// How numbers are written.
    enum Options { native = 0, big_endian = 1, little_endian = 2 };

    /// A checksum over every byte that an iterator pushes or pops while the checksum is registered: CRC-32, see
    /// `Util::crc32`.
    class NV_checksum {
      public:
        void add(const unsigned char* bytes, int count);
        std::uint32_t value() const { return crc_; }

      private:
        friend class NV_iterator;
        std::uint32_t crc_ = 0;
        NV_checksum* next_ = nullptr; ///< the one that was registered before this one
    };

    /// Decides which items are included in a pass.
    class NV_selector {
      public:
        /// \param ok  set to whether the iterator's mode is one for writing
        virtual bool include_in_serialise(const NV_item& item, const NV_iterator* iterator, bool& ok,
                                          bool ignore_selector) const = 0;
        virtual ~NV_selector() = default;
    };

    // ---- Virtual operations: what a derived class provides ----

    /// Closes what is open, then opens in the new mode.
    virtual void set_mode(modes_t mode) = 0;
    virtual ~NV_iterator() = default;
    /// Whether there is something to read; for some classes, whether there is a file or a buffer at all.
    virtual bool is_readable() = 0;
    /// Writes bytes. \return whether all of them were written
    virtual bool push_bytes(unsigned char* bytes, int count) = 0;
    /// Reads and consumes bytes. \return whether there were `count`
    virtual bool pop_bytes(unsigned char* bytes, int count) = 0;
    /// Reads bytes and consumes none. \return whether there were `count`
    virtual bool peek_bytes(unsigned char* bytes, int count) = 0;
    /// Bytes in use, and bytes in all; 0 for what is not known.
    virtual void get_free_space(unsigned int& used, unsigned int& total) const = 0;

    modes_t get_mode() const { return mode_; }

    /// Sets what decides which items are included; not owned. Null: the items decide themselves.
    void set_selector(const NV_selector* selector) { selector_ = selector; }
    const NV_selector* get_selector() const { return selector_; }

    // ---- Headers ----

    bool push_header(std::uint32_t header);
    bool pop_header(std::uint32_t& header);
    bool peek_header(std::uint32_t& header);

    // ---- Values: whether one was written, or read; a `value` that was not read is unchanged ----

    bool push_bool(bool value, Options options);
    bool push_char(char value, Options options);
    bool push_uint8(std::uint8_t value, Options options);
    bool push_uint16(std::uint16_t value, Options options);
    bool push_uint32(std::uint32_t value, Options options);
    bool push_uint64(std::uint64_t value, Options options);
    bool push_int8(std::int8_t value, Options options);
    bool push_int16(std::int16_t value, Options options);
    bool push_int32(std::int32_t value, Options options);
    bool push_int64(std::int64_t value, Options options);
    bool push_float(float value, Options options);
    bool push_double(double value, Options options);

    bool pop_bool(bool& value, Options options);
    bool pop_char(char& value, Options options);
    bool pop_uint8(std::uint8_t& value, Options options);
    bool pop_uint16(std::uint16_t& value, Options options);
    bool pop_uint32(std::uint32_t& value, Options options);
    bool pop_uint64(std::uint64_t& value, Options options);
    bool pop_int8(std::int8_t& value, Options options);
    bool pop_int16(std::int16_t& value, Options options);
    bool pop_int32(std::int32_t& value, Options options);
    bool pop_int64(std::int64_t& value, Options options);
    bool pop_float(float& value, Options options);
    bool pop_double(double& value, Options options);

    /// Reads how many values a stored array has: one byte, or, for a matrix, a byte for the rows and one for the
    /// columns.
    /// \param storage_class  1 (array) or 2 (matrix)
    /// \return false for any other class, and when the bytes are missing
    bool pop_array_size(int storage_class, unsigned& count);

    // ---- Checksums: not owned; remove each before it is destroyed ----

    /// Adding one again, or removing one that is not registered, changes nothing.
    void add_checksum_getter(NV_checksum* checksum);
    void remove_checksum_getter(NV_checksum* checksum);

  protected:
    NV_iterator() = default;
    NV_iterator(const NV_iterator&) = delete;
    NV_iterator& operator=(const NV_iterator&) = delete;

    modes_t mode_ = closed;

  private:
    bool push(unsigned char* bytes, int count);
    bool pop(unsigned char* bytes, int count);
    void add_to_checksums(const unsigned char* bytes, int count);

    template <typename Number>
    bool push_number(Number value, Options options);
    template <typename Number>
    bool pop_number(Number& value, Options options);

    const NV_selector* selector_ = nullptr;
    NV_checksum* checksums_ = nullptr; ///< the one registered last
};

} // namespace NV_store
