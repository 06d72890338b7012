#pragma once

#include <cstdint>

/// A view of the bytes of a message, which the caller owns: where they are and how many are in use.
class Binary_message_storage_base {
  public:
    /// The first byte of the message.
    unsigned char* get_ptr() const { return data_; }
    /// Bytes in use.
    unsigned get_size() const { return size_; }

  protected:
    Binary_message_storage_base(unsigned char* data, unsigned size) : data_(data), size_(size) {}
    ~Binary_message_storage_base() = default;

    unsigned char* data_;
    unsigned size_;
};

/// The same with the capacity of the caller's buffer.
class Binary_message_storage : public Binary_message_storage_base {
  public:
    /// Uses all of the `size` bytes at `data`.
    Binary_message_storage(unsigned char* data, unsigned size)
        : Binary_message_storage_base(data, size), capacity_(size) {}
    /// Uses the first `used` of the `capacity` bytes at `data`, all of them when `used` is more.
    Binary_message_storage(unsigned char* data, unsigned capacity, unsigned used)
        : Binary_message_storage_base(data, used < capacity ? used : capacity), capacity_(capacity) {}

    /// Bytes that the buffer can hold.
    unsigned get_capacity() const { return capacity_; }
    /// Sets the number of bytes in use.
    /// \return false, with nothing changed, when it exceeds the capacity
    bool set_size(unsigned size);
    /// Moves the start of the message forward by `count` bytes; size and capacity shrink by as much.
    /// \return false, with nothing changed, when fewer bytes are in use
    bool skip_front(unsigned count);

  private:
    unsigned capacity_;
};

/// Typed access to the bytes of a storage. Offsets count from the first byte; numbers are little-endian and need no
/// alignment. A read past the message's end returns 0; a write past it does nothing and returns false.
template <typename Storage>
class Binary_wrapper : public Storage {
  public:
    using Storage::Storage;

    std::uint8_t get_uint8(unsigned offset) const;
    std::int8_t get_int8(unsigned offset) const;
    std::uint16_t get_uint16_le(unsigned offset) const;
    std::int16_t get_int16_le(unsigned offset) const;
    std::uint32_t get_uint32_le(unsigned offset) const;
    std::int32_t get_int32_le(unsigned offset) const;
    /// IEEE-754 single, 4 bytes.
    float get_float(unsigned offset) const;
    /// IEEE-754 double, 8 bytes.
    double get_double(unsigned offset) const;

    bool set_uint8(unsigned offset, std::uint8_t value);
    bool set_int8(unsigned offset, std::int8_t value);
    bool set_uint16_le(unsigned offset, std::uint16_t value);
    bool set_int16_le(unsigned offset, std::int16_t value);
    bool set_uint32_le(unsigned offset, std::uint32_t value);
    bool set_int32_le(unsigned offset, std::int32_t value);
    bool set_float(unsigned offset, float value);
    bool set_double(unsigned offset, double value);

    // ---- Bits: number n of a byte has the weight 1 << n ----

    /// `count` bits of the byte at `offset`, from bit `first` upwards. Bits past the byte read as 0, and are not
    /// written.
    unsigned get_bits_lsb(unsigned offset, unsigned first, unsigned count) const;
    bool set_bits_lsb(unsigned offset, unsigned first, unsigned count, unsigned value);
    /// One bit. Despite the name, its number has the same weight as above.
    bool get_bit_msb(unsigned offset, unsigned bit) const;
    bool set_bit_msb(unsigned offset, unsigned bit, bool on);

    /// The text from `offset` on: up to the first NUL, at most `length` characters, never past the message's end.
    /// \return the text in place when a NUL ends it there; else a terminated copy, cut to 4200 characters and valid
    ///         until the calling thread's next call; "" when `offset` is not in the message
    const char* get_string(unsigned offset, unsigned length) const;
};

extern template class Binary_wrapper<Binary_message_storage>;

/// The bytes of a message: the base of every message class.
class Binary_message : public Binary_wrapper<Binary_message_storage> {
  public:
    using Binary_wrapper<Binary_message_storage>::Binary_wrapper;
};
