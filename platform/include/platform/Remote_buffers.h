#pragma once

#include <cstdint>

namespace CDS {
namespace Remote {

/// Values to send to a peer process, one after the other, in memory that the caller owns: numbers little-endian, a BOOL
/// as one byte of 0 or 1, floating-point numbers in IEEE 754 format. Not synchronised.
///
/// Every append returns the number of bytes that it added: the size of the value, or 0 when the value does not fit.
class Send_buffer {
  public:
    Send_buffer(unsigned char* storage, int capacity) : storage_(storage), capacity_(capacity < 0 ? 0 : capacity) {}

    const unsigned char* data() const { return storage_; }
    /// Bytes that have been appended.
    int size() const { return size_; }
    void clear() { size_ = 0; }

    int append_BOOL(bool value);
    int append_CHAR(char value);
    int append_UINT8(std::uint8_t value);
    int append_UINT16(std::uint16_t value);
    int append_UINT32(std::uint32_t value);
    int append_UINT64(std::uint64_t value);
    int append_INT8(std::int8_t value);
    int append_INT16(std::int16_t value);
    int append_INT32(std::int32_t value);
    int append_INT64(std::int64_t value);
    int append_FLOAT(float value);
    int append_DOUBLE(double value);
    /// The characters of a text, without its NUL.
    int append_TEXT(const char* text);

  private:
    int append(const void* bytes, int count);

    unsigned char* storage_;
    int capacity_;
    int size_ = 0;
};

/// The values that a peer process has sent, in memory that the caller owns. Not synchronised.
///
/// Every pop returns the number of bytes that it consumed: the size of the value, or 0, with `value` unchanged, when
/// fewer are left.
class Receive_buffer {
  public:
    Receive_buffer(const unsigned char* data, int size) : data_(data), size_(size < 0 ? 0 : size) {}

    /// Bytes that have not been consumed.
    int left() const { return size_ - position_; }

    int pop_BOOL(bool& value);
    int pop_CHAR(char& value);
    int pop_UINT8(std::uint8_t& value);
    int pop_UINT16(std::uint16_t& value);
    int pop_UINT32(std::uint32_t& value);
    int pop_UINT64(std::uint64_t& value);
    int pop_INT8(std::int8_t& value);
    int pop_INT16(std::int16_t& value);
    int pop_INT32(std::int32_t& value);
    int pop_INT64(std::int64_t& value);
    int pop_FLOAT(float& value);
    int pop_DOUBLE(double& value);

  private:
    template <typename Number>
    int pop(Number& value);

    const unsigned char* data_;
    int size_;
    int position_ = 0;
};

} // namespace Remote
} // namespace CDS
