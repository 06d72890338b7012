#pragma once

#include <glue/vesk/Vesk_message.h>

#include <cstdint>

namespace GNSS_messages {

/// Which of a message's accessors read and write a `T`.
template <auto Get, auto Set>
struct Access_by {
    static constexpr auto get = Get;
    static constexpr auto set = Set;
};
template <typename T>
struct Access;
template <>
struct Access<std::uint8_t> : Access_by<&Binary_message::get_uint8, &Binary_message::set_uint8> {};
template <>
struct Access<std::int8_t> : Access_by<&Binary_message::get_int8, &Binary_message::set_int8> {};
template <>
struct Access<std::uint16_t> : Access_by<&Binary_message::get_uint16_le, &Binary_message::set_uint16_le> {};
template <>
struct Access<std::int16_t> : Access_by<&Binary_message::get_int16_le, &Binary_message::set_int16_le> {};
template <>
struct Access<std::uint32_t> : Access_by<&Binary_message::get_uint32_le, &Binary_message::set_uint32_le> {};
template <>
struct Access<std::int32_t> : Access_by<&Binary_message::get_int32_le, &Binary_message::set_int32_le> {};
template <>
struct Access<float> : Access_by<&Binary_message::get_float, &Binary_message::set_float> {};
template <>
struct Access<double> : Access_by<&Binary_message::get_double, &Binary_message::set_double> {};

/// The offset of a field, from the start of its frame or block.
template <typename T>
struct Field {
    unsigned offset;

    /// The offset of the first byte after it.
    constexpr unsigned end() const { return offset + static_cast<unsigned>(sizeof(T)); }
};

/// The part that the messages have in common: access to fields, and building a new frame.
class GLUE_EXPORT GNSS_message : public Vesk_message {
  public:
    using Vesk_message::Vesk_message;
    ~GNSS_message() override;

  protected:
    /// Bytes of the checksum at the end of the body.
    static constexpr unsigned checksum_size = 1;

    /// The length of a body whose last field is `field`.
    template <typename T>
    static constexpr unsigned body_up_to(Field<T> field) {
        return field.end() - header_size + checksum_size;
    }

    /// Reads a field `extra_offset` bytes after its own offset: in a list, in a block.
    template <typename T>
    T get(Field<T> field, unsigned extra_offset = 0) const {
        return (this->*Access<T>::get)(field.offset + extra_offset);
    }
    template <typename T>
    bool set(Field<T> field, T value, unsigned extra_offset = 0) {
        return (this->*Access<T>::set)(field.offset + extra_offset, value);
    }

    /// Reads one of the two fields of a pair. \return 0 when `i` is neither 0 nor 1
    std::uint8_t get_of_pair(Field<std::uint8_t> first, unsigned i) const {
        return i < 2 ? get(first, i) : std::uint8_t(0);
    }
    bool set_of_pair(Field<std::uint8_t> first, unsigned i, std::uint8_t value) {
        return i < 2 && set(first, value, i);
    }

    /// Makes the message a frame with this identifier and a body of `L` bytes, all of them 0.
    /// \return false, with nothing changed, when the frame exceeds the buffer or `L` is 4096 or more
    bool init_frame(int identifier, unsigned L);
};

/// A list with one entry for each satellite, from offset 5 on. The receiver defines what an entry means.
template <typename Entry, char first, char second, unsigned bytes_after_entries = 1>
class GLUE_EXPORT GNSS_list : public GNSS_message {
  public:
    static constexpr int id = msg_id(first, second);
    /// Bytes of the body after the entries: the checksum and, in some messages, one more byte before it.
    static constexpr unsigned bytes_behind = bytes_after_entries;

    using GNSS_message::GNSS_message;

    /// Makes the message a frame of `count` entries, all of them 0.
    /// \return false, with nothing changed, when the frame exceeds the buffer or the body would be 4096 bytes or more
    bool init(unsigned count) {
        return count < body_limit && init_frame(id, count * static_cast<unsigned>(sizeof(Entry)) + bytes_behind);
    }

    /// The number of body bytes minus `bytes_behind`, whatever the size of an entry.
    unsigned get_num_entries() const {
        const unsigned L = get_msg_len();
        return L < bytes_behind ? 0 : L - bytes_behind;
    }

    /// \return 0 when `i` is not below the number of entries
    Entry get_entry(unsigned i) const { return i < get_num_entries() ? get(first_entry, offset_of(i)) : Entry(0); }
    /// \return false, with nothing written, when `i` is not below the number of entries
    bool set_entry(unsigned i, Entry value) { return i < get_num_entries() && set(first_entry, value, offset_of(i)); }

  private:
    static constexpr Field<Entry> first_entry{header_size};
    static constexpr unsigned offset_of(unsigned i) { return i * static_cast<unsigned>(sizeof(Entry)); }
};

} // namespace GNSS_messages
