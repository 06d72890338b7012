#pragma once

#include <cstdint>

namespace NV_store {

class NV_item;

/// What settings are written to and read from: turns typed values and headers into bytes and keeps the checksums that
/// are asked for. Where the bytes go to or come from is up to the classes derived from it.
///
/// Numbers are little-endian unless the options say otherwise; a bool is one byte of 0 or 1, read as false or, for
/// any other value than 0, true. A header is one 32-bit number: type byte (bits 31 to 24), kind (23 to 16), id (15 to
/// 0). Not synchronised.
class NV_iterator {
  public:
    /// What an iterator is open for, and, when that is writing, which items take part.
    enum modes_t {
        closed = 0,
        reading = 1,
        writing_all = 2,       ///< from the start, every item
        writing_set = 3,       ///< from the start, items that have been set or loaded
        appending_written = 4, ///< behind what is there, items reported as written since they were saved
        appending_changed = 5  ///< behind what is there, items whose value has changed since
    };

    /// How numbers are written.
    enum Options { native = 0, big_endian = 1, little_endian = 2 };

    /// A checksum over every byte that passes an iterator while it is registered there: CRC-32, see `Util::crc32`.
    class NV_checksum {
      public:
        void add(const unsigned char* bytes, int count);
        std::uint32_t value() const { return crc_; }

      private:
        friend class NV_iterator;
        std::uint32_t crc_ = 0;
        NV_checksum* below_ = nullptr; ///< registered before this one
    };

    /// Decides which items take part in a pass.
    class NV_selector {
      public:
        /// \param ok  set to whether the iterator's mode is one for writing
        virtual bool include_in_serialise(const NV_item& item, const NV_iterator* iterator, bool& ok,
                                          bool ignore_selector) const = 0;
        virtual ~NV_selector() = default;
    };

    // ---- Virtual operations: what a place to write to or read from has to offer ----

    /// Opens for a purpose; closes first what was open.
    virtual void set_mode(modes_t mode) = 0;
    virtual ~NV_iterator() = default;
    /// Whether there is something to read, or, for some, whether there is something to work with at all.
    virtual bool is_readable() = 0;
    /// Whether all of the bytes were taken.
    virtual bool push_bytes(unsigned char* bytes, int count) = 0;
    /// Whether so many bytes were there; they are consumed.
    virtual bool pop_bytes(unsigned char* bytes, int count) = 0;
    /// The same; nothing is consumed.
    virtual bool peek_bytes(unsigned char* bytes, int count) = 0;
    /// Bytes used, and bytes there are in all; 0 when that is not known.
    virtual void get_free_space(unsigned int& used, unsigned int& total) const = 0;

    modes_t get_mode() const { return mode_; }

    /// Who decides which items take part; not owned, null: the items themselves.
    void set_selector(const NV_selector* selector) { selector_ = selector; }
    const NV_selector* get_selector() const { return selector_; }

    // ---- Headers ----

    bool push_header(std::uint32_t header);
    bool pop_header(std::uint32_t& header);
    bool peek_header(std::uint32_t& header);

    // Values: whether there was room, or whether a whole value was there; if not, `value` is untouched

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
    /// columns. \param storage_class  1 or 2; for any other value there are none, and the result is false
    bool pop_array_size(int storage_class, unsigned& count);

    // Checksums: not owned; each leaves before it dies. One that is there already sees every byte once; removing one
    // that is not does nothing.

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
