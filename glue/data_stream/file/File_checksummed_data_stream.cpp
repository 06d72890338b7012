#include <glue/data_stream/File_checksummed_data_stream.h>

#include "detail/assertion.h"

#include <platform/Atime.h>
#include <platform/Debug.h>
#include <platform/Util.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace {

constexpr long crc32_digits = 8;
/// Bytes of content that are read together with the trailer.
constexpr long content_before_trailer = 5;
/// Holds them, the trailer and a NUL.
constexpr std::size_t tail_capacity = 31;
/// Content is verified in blocks of at most this many bytes.
constexpr std::int32_t block_size = 255;

using Tail = char[tail_capacity];

long head_length() {
    return static_cast<long>(std::strlen(File_checksummed_data_stream::crc32_head));
}

/// Positions have 32 bits on every machine: a larger file fails as it does where `long` has 32 bits.
bool seek_to_tail(std::FILE* file, std::int64_t file_size, long length) {
    if (file_size > std::numeric_limits<std::int32_t>::max()) {
        errno = EOVERFLOW;
        return false;
    }
    return std::fseek(file, -length, SEEK_END) == 0 && std::ftell(file) >= 0;
}

/// Reads the trailer of a file, and five bytes of content if there are so many. Reports why it cannot.
bool read_tail(std::FILE* file, const char* path, std::int64_t file_size, long trailer_length, Tail& tail) {
    if (file_size < trailer_length) {
        Debug::Print::dprint("Empty or truncated checksummed file [%s]\n", path);
        return false;
    }
    const long longest = trailer_length + content_before_trailer;
    const long length = file_size >= longest ? longest : trailer_length;
    if (!seek_to_tail(file, file_size, length)) {
        Debug::Print::dprint("CRC32 seek failed in checksummed file [%s]: %s\n", path, std::strerror(errno));
        return false;
    }
    if (std::fread(tail, static_cast<std::size_t>(length), 1, file) != 1) {
        Debug::Print::dprint("Short read while seeking CRC32 in checksummed file [%s]: %s\n", path,
                             std::strerror(errno));
        return false;
    }
    return true;
}

enum class Trailer { readable, unreadable, foreign };

/// Finds the trailer in the tail of a file and reads its digits.
///
/// On purpose, a trailer after fewer than five bytes of content is unreadable: its "=" is too near to the start of the
/// tail.
Trailer parse_trailer(const Tail& tail, unsigned int& stored_crc) {
    const auto* const equals_sign = static_cast<const char*>(memrchr(tail, '=', sizeof tail));
    if (!equals_sign || equals_sign - tail < head_length())
        return Trailer::unreadable;
    const char* const head = equals_sign - (head_length() - 1);
    if (*head != File_checksummed_data_stream::crc32_head[0])
        return Trailer::foreign;
    return std::sscanf(head, "\nCRC32=%x", &stored_crc) == 1 ? Trailer::readable : Trailer::unreadable;
}

} // namespace

const char* const File_checksummed_data_stream::crc32_head = "\nCRC32=";

File_checksummed_data_stream::File_checksummed_data_stream() : running_crc_(crc32_seed), data_end_(0) {
    reset_description();
}

File_checksummed_data_stream::~File_checksummed_data_stream() = default;

void File_checksummed_data_stream::reset_description() {
    format_description("CRCFILE(%p)", static_cast<void*>(this));
}

// ---- Writing ----

bool File_checksummed_data_stream::open_write(const char* path) {
    if (File_data_stream::close_write())
        reset_description();
    write_file = std::fopen(path, "w");
    if (!write_file) {
        report_failed_opening(path);
        return false;
    }
    format_description("CRCFILE(%p, %s, w)", static_cast<void*>(this), path);
    running_crc_ = crc32_seed;
    return true;
}

int File_checksummed_data_stream::_write(const unsigned char* data, unsigned int len) {
    const int written = File_data_stream::_write(data, len);
    if (written >= 1)
        running_crc_ = Util::crc32(running_crc_, data, written);
    return written;
}

bool File_checksummed_data_stream::close_write() {
    if (!write_file) {
        Debug::Print::dprint("CRCFILE not open for write!\n");
        return false;
    }
    if (std::ferror(write_file) == 0)
        write_trailer();
    const bool closed = File_data_stream::close_write();
    reset_description();
    return closed;
}

void File_checksummed_data_stream::write_trailer() {
    char trailer[32];
    const int length = std::snprintf(trailer, sizeof trailer, "%s%08X", crc32_head, running_crc_);
    if (std::fwrite(trailer, static_cast<std::size_t>(length), 1, write_file) < 1)
        Debug::Print::dprint("CRCFILE failed to write CRC32!\n");
}

// ---- Reading ----

bool File_checksummed_data_stream::open_read(const char* path) {
    static const long read_crc32_seek_off = head_length() + crc32_digits;

    close_read();
    data_end_ = 0;
    read_file = std::fopen(path, "rb");
    if (!read_file) {
        report_failed_opening(path);
        return false;
    }
    struct stat infile_stat {};
    Tail tail = {};
    if (fstat(fileno(read_file), &infile_stat) != 0 ||
        !read_tail(read_file, path, infile_stat.st_size, read_crc32_seek_off, tail))
        return reject();

    unsigned int stored_crc = 0;
    const Trailer trailer = parse_trailer(tail, stored_crc);
    if (trailer == Trailer::foreign)
        GLUE_ASSERT(false); // on purpose: a file that this class never wrote must not pass for a damaged one
    if (trailer == Trailer::unreadable) {
        Debug::Print::dprint("Failure while reading CRC32 in checksummed file [%s]\n", path);
        return reject();
    }
    data_end_ = static_cast<std::int32_t>(infile_stat.st_size - read_crc32_seek_off);
    GLUE_ASSERT(infile_stat.st_size - data_end_ > 0);
    if (!verify_content(stored_crc, path))
        return reject();
    std::rewind(read_file);
    format_description("CRCFILE(%p, %s, r)", static_cast<void*>(this), path);
    return true;
}

bool File_checksummed_data_stream::reject() {
    close_read();
    return false;
}

/// Compares the CRC of the content with the stored one. Reports a difference.
bool File_checksummed_data_stream::verify_content(std::uint32_t stored_crc, const char* path) {
    std::uint32_t crc = crc32_seed;
    if (!add_content_to(crc, path))
        return false;
    if (crc != stored_crc)
        Debug::Print::dprint("Error CRC32 mismatch on checksummed file [%s]\n", path);
    return crc == stored_crc;
}

/// Adds the content of the file that is open for reading to a CRC. Reports a read that fails.
bool File_checksummed_data_stream::add_content_to(std::uint32_t& crc, const char* path) {
    unsigned char block[block_size];
    std::rewind(read_file);
    std::int32_t position = 0;
    while (position < data_end_) {
        const auto size = static_cast<std::size_t>(std::min(block_size, data_end_ - position));
        const auto count = static_cast<std::int32_t>(std::fread(block, 1, size, read_file));
        if (count > 0) {
            position += count;
            crc = Util::crc32(crc, block, count);
        } else if (std::ferror(read_file) != 0) {
            Debug::Print::dprint("CRC32 calc read failed file [%s]: %s\n", path, std::strerror(errno));
            return false;
        } else { // the file has become shorter: try again, without using the processor all the time
            std::clearerr(read_file);
            Atime::delay(1);
        }
    }
    return true;
}

bool File_checksummed_data_stream::open_read(int) {
    return false;
}

bool File_checksummed_data_stream::close_read() {
    const bool closed = File_data_stream::close_read();
    reset_description();
    return closed;
}

int File_checksummed_data_stream::get_data(int n) {
    const long position = read_file ? std::ftell(read_file) : -1;
    if (position < 0)
        return 0;
    if (std::int64_t{position} + n <= data_end_)
        return File_data_stream::get_data(n);
    if (position <= data_end_)
        File_data_stream::get_data(static_cast<int>(data_end_ - position));
    return 0;
}
