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
/// Bytes of content that are looked at together with the trailer.
constexpr long content_before_trailer = 5;
/// Room for them, the trailer and the end of a text.
constexpr std::size_t tail_room = 31;
/// Content is verified in blocks of at most this many bytes.
constexpr std::int32_t block_size = 255;

/// A file whose positions 32 bits do not hold fails on every machine as it does on those with a 32-bit `long`.
bool seek_to_tail(std::FILE* file, std::int64_t file_size, long length) {
    if (file_size > std::numeric_limits<std::int32_t>::max()) {
        errno = EOVERFLOW;
        return false;
    }
    return std::fseek(file, -length, SEEK_END) == 0 && std::ftell(file) >= 0;
}

/// Reads the last `length` bytes of a file whose size is `file_size`. Says what is wrong when it cannot.
bool read_tail(std::FILE* file, const char* path, std::int64_t file_size, long length, char* tail) {
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
    static const auto read_crc32_seek_off = static_cast<long>(std::strlen(crc32_head)) + crc32_digits;

    close_read();
    data_end_ = 0;
    read_file = std::fopen(path, "rb");
    if (!read_file) {
        report_failed_opening(path);
        return false;
    }
    struct stat infile_stat {};
    if (fstat(fileno(read_file), &infile_stat) != 0)
        return reject();
    if (infile_stat.st_size < read_crc32_seek_off) {
        Debug::Print::dprint("Empty or truncated checksummed file [%s]\n", path);
        return reject();
    }

    char tail[tail_room] = {};
    const long longest_tail = read_crc32_seek_off + content_before_trailer;
    const long tail_length = infile_stat.st_size >= longest_tail ? longest_tail : read_crc32_seek_off;
    if (!read_tail(read_file, path, infile_stat.st_size, tail_length, tail))
        return reject();

    // On purpose, a trailer with less than five bytes of content in front of it lies too far to the front.
    const auto head_length = static_cast<long>(std::strlen(crc32_head));
    const auto* const equals_sign = static_cast<const char*>(memrchr(tail, '=', sizeof tail));
    if (!equals_sign || equals_sign - tail < head_length)
        return reject_trailer(path);
    const char* const trailer = equals_sign - (head_length - 1);
    if (*trailer != crc32_head[0])
        GLUE_ASSERT(false); // on purpose: a file that was never ours is not to be taken for a damaged one
    unsigned int stored_crc = 0;
    if (std::sscanf(trailer, "\nCRC32=%x", &stored_crc) != 1)
        return reject_trailer(path);

    data_end_ = static_cast<std::int32_t>(infile_stat.st_size - read_crc32_seek_off);
    GLUE_ASSERT(infile_stat.st_size - data_end_ > 0);
    std::uint32_t crc = crc32_seed;
    if (!add_content_to(crc, path))
        return reject();
    if (crc != stored_crc) {
        Debug::Print::dprint("Error CRC32 mismatch on checksummed file [%s]\n", path);
        return reject();
    }
    std::rewind(read_file);
    format_description("CRCFILE(%p, %s, r)", static_cast<void*>(this), path);
    return true;
}

bool File_checksummed_data_stream::reject() {
    close_read();
    return false;
}

bool File_checksummed_data_stream::reject_trailer(const char* path) {
    Debug::Print::dprint("Failure while reading CRC32 in checksummed file [%s]\n", path);
    return reject();
}

/// Updates a CRC with the content of the file being read. Says so and returns false when it cannot be read.
bool File_checksummed_data_stream::add_content_to(std::uint32_t& crc, const char* path) {
    unsigned char block[block_size];
    std::rewind(read_file);
    std::int32_t position = 0;
    while (position < data_end_) {
        const auto size = static_cast<std::size_t>(std::min(block_size, data_end_ - position));
        const auto came = static_cast<std::int32_t>(std::fread(block, 1, size, read_file));
        if (came > 0) {
            position += came;
            crc = Util::crc32(crc, block, came);
        } else if (std::ferror(read_file) != 0) {
            Debug::Print::dprint("CRC32 calc read failed file [%s]: %s\n", path, std::strerror(errno));
            return false;
        } else { // it has shrunk: look again, and do not take the processor for that
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
