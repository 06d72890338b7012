#pragma once

#include <glue/data_stream/File_data_stream.h>

#include <cstdint>

/// A stream over a file that ends with a CRC-32 of its content. A writer appends it. A reader verifies the whole file
/// before it delivers the first byte, and never delivers the trailer.
///
///     File_checksummed_data_stream writer;
///     if (writer.open_write("calibration")) {
///         writer.printf("wheelbase %d\n", 2890);
///         writer.close_write();                        // adds the trailer; the destructor does not
///     }
///     File_checksummed_data_stream reader;
///     if (reader.open_read("calibration"))             // false: damaged, or never finished
///         while (reader.bytes_avail(1U))
///             take_a_line_from(reader);
///
/// **The file**: the content, then a trailer of 15 bytes that ends the file: a line feed, "CRC32=" and eight upper-case
/// hexadecimal digits, the most significant first. They are `Util::crc32` of the content, with the seed 0x5CA1AB1E and
/// no inversion before or after it. The five bytes "abcde" are stored as "abcde\nCRC32=0E894A8D".
///
/// **Ownership, threads**: as `File_data_stream`.
class GLUE_EXPORT File_checksummed_data_stream : public File_data_stream {
  public:
    /// The beginning of the trailer.
    static const char* const crc32_head;
    /// The CRC of an empty content.
    static constexpr std::uint32_t crc32_seed = 0x5CA1AB1E;

    File_checksummed_data_stream();
    /// Closes both sides. On purpose, a file still open for writing gets no trailer, and so will not verify.
    ~File_checksummed_data_stream() override;

    // ---- Writing ----

    /// Opens an empty file for writing: creates it, or removes its content. A file still open for writing is closed
    /// first, without a trailer.
    /// \return false, after a message through the debug printer, when it cannot be opened
    [[nodiscard]] bool open_write(const char* path);

    /// As `File_data_stream`'s. The bytes that the file accepted are included in the checksum.
    int _write(const unsigned char* data, unsigned int len) override;

    /// Appends the trailer, unless a write has failed before, and waits until everything is on the medium. A trailer
    /// that cannot be written is reported through the debug printer.
    /// \return false when no file is open for writing; on purpose true otherwise, also when the disk is full or fails:
    ///         open the file for reading to be sure
    bool close_write();

    // ---- Reading ----

    /// Verifies a whole file, then opens it for reading at its first byte. A file still open for reading is closed
    /// first.
    ///
    /// On purpose, and relied on:
    /// - a file with fewer than five bytes of content is rejected, even with the right trailer;
    /// - the digits may be lower-case, and a blank is accepted as a leading zero;
    /// - an assertion ends the process when the last 20 bytes of a file (15 of a shorter file) have an "=", the last
    ///   "=" follows at least seven of them, and the byte six before it is no line feed: another program wrote the
    ///   file, or its line feed is damaged. So never open a file of unknown origin.
    ///
    /// A file that becomes shorter meanwhile is read again and again until it has its size back.
    /// \return false, after a message through the debug printer, with the file closed, when it cannot be opened or
    ///         does not verify, or when it is larger than 2^31 - 1 bytes
    [[nodiscard]] bool open_read(const char* path);
    /// Not supported. \return false; nothing happens
    [[nodiscard]] bool open_read(int fd);

    /// \return false when no file is open for reading
    bool close_read();

    using Data_stream::get_data;
    /// As `File_data_stream`'s, within the content.
    /// \return 1 when `n` bytes of content were read, also when they were the last ones, and for an `n` of 0; 0 when
    ///         there are fewer, with those in the ring, and when no file is open
    int get_data(int n) override;

  private:
    void reset_description();
    void write_trailer();
    bool reject();
    bool verify_content(std::uint32_t stored_crc, const char* path);
    bool add_content_to(std::uint32_t& crc, const char* path);

    std::uint32_t running_crc_; ///< of everything written since `open_write`
    std::int32_t data_end_;     ///< bytes of content in the file being read
};
