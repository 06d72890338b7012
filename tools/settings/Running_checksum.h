#pragma once

#include <cstddef>
#include <cstdint>

/// The CRC-32s of pieces of a row of bytes, `Util::crc32` of each from 0, however many of them are open at once: every
/// byte is looked at once. That is what a settings file takes whose containers claim to be nested 100,000 deep.
class Running_checksum {
  public:
    /// A place in the row.
    struct Mark {
        std::uint32_t crc;
        std::size_t position;
    };

    void add(const unsigned char* bytes, int count);

    /// Bytes so far.
    std::size_t position() const { return now_.position; }
    /// Where the next byte goes.
    Mark mark() const { return now_; }
    /// The CRC-32 of the bytes since then.
    std::uint32_t since(const Mark& mark) const;

  private:
    Mark now_{0, 0};
};
