#pragma once

#include <glue/data_stream/File_data_stream.h>

#include <cstdint>

/// A stream over a file that ends with a CRC-32 of its content: a writer adds it, a reader delivers nothing of a file
/// before the whole of it has been verified, and never the trailer.
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
/// **The file**: the content, then a trailer of 15 bytes with nothing behind it: a line feed, "CRC32=" and eight
/// upper-case hexadecimal digits, the most significant first. They are `Util::crc32` of the content, from the seed
/// 0x5CA1AB1E on, with no inversion around it. The five bytes "abcde" are kept as "abcde\nCRC32=0E894A8D".
///
/// **Ownership, threads**: as `File_data_stream`.
class GLUE_EXPORT File_checksummed_data_stream : public File_data_stream {
  public:
    /// What the trailer begins with.
    static const char* const crc32_head;
    /// What the CRC of a content starts from.
    static constexpr std::uint32_t crc32_seed = 0x5CA1AB1E;

    File_checksummed_data_stream();
    /// Closes what is open. On purpose, a file still being written gets no trailer and so will not verify.
    ~File_checksummed_data_stream() override;

    // ---- Writing ----

    /// Opens for writing, after cutting the file to nothing or making it. A file still open for writing is closed
    /// first, without a trailer.
    /// \return false, after a message through the debug printer, when it cannot be opened
    bool open_write(const char* path);

    /// As the plain file's; what the file took is part of the checksum.
    int _write(const unsigned char* data, unsigned int len) override;

    /// Adds the trailer, unless a write has failed before, and waits until the medium has everything. Messages through
    /// the debug printer tell of a trailer that could not be written.
    /// \return false when no file is open for writing; on purpose true otherwise, also when the disk is full or fails:
    ///         open it for reading to be sure
    bool close_write();

    // ---- Reading ----

    /// Verifies the whole of a file, then opens it for reading at its first byte. A file still open for reading is
    /// closed first.
    ///
    /// On purpose, and relied on:
    /// - a file with a content of fewer than five bytes is rejected, even with the right trailer;
    /// - the digits may be lower-case, and a blank may stand for a leading zero;
    /// - a file whose last "=" within its last 20 bytes (15 of a file shorter than that) has at least seven bytes in
    ///   front of it there, but no line feed six bytes before it, ends the process with an assertion: something wrote
    ///   a file that is none of ours, or damaged the line feed. So never open a file of unknown origin.
    ///
    /// While a file is found shorter than it was at first, reading it is tried again until it has grown back.
    /// \return false, after a message through the debug printer, with the file closed, when it cannot be opened or
    ///         does not verify, or when it is larger than 2^31 - 1 bytes
    bool open_read(const char* path);
    /// Not supported. \return false; nothing happens
    bool open_read(int fd);

    /// \return false when no file is open for reading
    bool close_read();

    using Data_stream::get_data;
    /// As the plain file's, within the content.
    /// \return 1 when `n` bytes were read and, an `n` of 0 apart, were all within the content, its last byte included;
    ///         0 for a read beyond its end, with what was left of it in the ring, and when no file is open
    int get_data(int n) override;

  private:
    void reset_description();
    void write_trailer();
    bool reject();
    bool reject_trailer(const char* path);
    bool add_content_to(std::uint32_t& crc, const char* path);

    std::uint32_t running_crc_; ///< of everything written since `open_write`
    std::int32_t data_end_;     ///< bytes of content in the file being read
};
