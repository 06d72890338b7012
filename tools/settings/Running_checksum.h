#pragma once

#include <cstddef>
#include <cstdint>

/// The CRC-32 of any number of overlapping pieces of a sequence of bytes, each as `Util::crc32` computes it from 0.
/// Every byte is processed once, so that a settings file whose containers claim to be nested 100,000 deep is checked
/// quickly.
class Running_checksum {
  public:
    /// A position in the sequence.
    struct Mark {
        std::uint32_t crc;
        std::size_t position;
    };

    void add(const unsigned char* bytes, int count);

    /// The number of bytes added.
    std::size_t position() const { return now_.position; }
    /// The position of the next byte.
    Mark mark() const { return now_; }
    /// The CRC-32 of the bytes since the mark.
    std::uint32_t since(const Mark& mark) const;

  private:
    Mark now_{0, 0};
};
