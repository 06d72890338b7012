// Files of any bytes, opened as checksummed ones and compared with the rules of the format, written here in another
// way: the file itself, a file with these bytes as its content, and the latter cut short.
//
// Some files end the process on purpose: those whose last "=" near their end is not in a trailer (see
// File_checksummed_data_stream::open_read). They are recognised by that rule and not opened. So a process that ends is
// a finding.

#include "fuzz_target.h"

#include <glue/data_stream/File_checksummed_data_stream.h>

#include <platform/Debug.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr std::size_t trailer_length = 15;
constexpr std::size_t least_content = 5;

/// A file in memory, with a path.
class Memory_file {
  public:
    explicit Memory_file(const std::string& bytes) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
        FUZZ_CHECK(fd_ >= 0);
        FUZZ_CHECK(write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    }
    ~Memory_file() { close(fd_); }
    Memory_file(const Memory_file&) = delete;
    Memory_file& operator=(const Memory_file&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    std::string bytes() const {
        std::string result(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        FUZZ_CHECK(pread(fd_, result.data(), result.size(), 0) == static_cast<ssize_t>(result.size()));
        return result;
    }

  private:
    int fd_;
};

/// The last bytes of a file, which decide whether it has a trailer.
std::string tail_of(const std::string& bytes) {
    const std::size_t longest = trailer_length + least_content;
    return bytes.substr(bytes.size() - (bytes.size() >= longest ? longest : trailer_length));
}

bool ends_the_process(const std::string& bytes) {
    if (bytes.size() < trailer_length)
        return false;
    const std::string tail = tail_of(bytes);
    const std::size_t equals_sign = tail.rfind('=');
    return equals_sign != std::string::npos && equals_sign >= 7 && tail[equals_sign - 6] != '\n';
}

std::uint32_t crc_of(const std::string& content) {
    std::uint32_t crc = ~0x5CA1AB1EU;
    for (const char byte : content) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

std::string with_trailer(const std::string& content) {
    char trailer[trailer_length + 1];
    std::snprintf(trailer, sizeof trailer, "\nCRC32=%08X", crc_of(content));
    return content + trailer;
}

/// The bytes that the stream delivers until its end, read in pieces of different sizes.
std::string deliver(File_checksummed_data_stream& stream) {
    std::string content;
    for (unsigned piece = 1; stream.bytes_avail(piece) != 0 || stream.bytes_avail() != 0; piece = piece * 3 % 1009) {
        std::string read(std::min(piece, stream.bytes_avail()), '\0');
        FUZZ_CHECK(
            stream.get_data(reinterpret_cast<unsigned char*>(read.data()), static_cast<unsigned>(read.size()), 0));
        stream.drop(static_cast<unsigned>(read.size()));
        content += read;
    }
    return content;
}

/// The bytes that a file delivers; nothing when it is rejected.
std::optional<std::string> content_of(const std::string& bytes) {
    const Memory_file file(bytes);
    File_checksummed_data_stream stream;
    if (!stream.open_read(file.path().c_str()))
        return std::nullopt;
    const std::string content = deliver(stream);
    FUZZ_CHECK(stream.get_data(1) == 0);
    FUZZ_CHECK(stream.close_read());
    return content;
}

/// A file that is accepted delivers everything except its last 15 bytes. The eight digits at its end, or fewer after
/// white space, are the checksum of the delivered bytes.
void check_unchanged(const std::string& bytes) {
    if (ends_the_process(bytes))
        return;
    const auto content = content_of(bytes);
    if (!content)
        return;
    FUZZ_CHECK(bytes.size() >= trailer_length);
    FUZZ_CHECK(*content == bytes.substr(0, bytes.size() - trailer_length));
    const std::string tail = tail_of(bytes);
    const std::string digits = tail.substr(tail.rfind('=') + 1);
    FUZZ_CHECK(static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 16)) == crc_of(*content));
}

/// Bytes that are written as a content are delivered again, unless they are too few.
void check_as_content(const std::string& content) {
    const std::string whole = with_trailer(content);
    const Memory_file file("previous content");
    File_checksummed_data_stream writer;
    FUZZ_CHECK(writer.open_write(file.path().c_str()));
    const auto* data = reinterpret_cast<const unsigned char*>(content.data());
    const auto first = static_cast<unsigned>(content.size() / 3);
    FUZZ_CHECK(writer.__write(data, first) == static_cast<int>(first));
    const auto rest = static_cast<unsigned>(content.size()) - first;
    FUZZ_CHECK(writer.__write(data + first, rest) == static_cast<int>(rest));
    FUZZ_CHECK(writer.close_write());
    FUZZ_CHECK(file.bytes() == whole);

    const auto delivered = content_of(whole);
    FUZZ_CHECK(delivered.has_value() == (content.size() >= least_content));
    FUZZ_CHECK(!delivered || *delivered == content);
}

/// A written file without its last bytes.
void check_cut(const std::string& content, std::size_t missing) {
    std::string bytes = with_trailer(content);
    bytes.resize(bytes.size() - std::min(missing, bytes.size()));
    check_unchanged(bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        Debug::Print::set_sink([](std::string_view) {});
        return true;
    }();
    static_cast<void>(quiet);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    check_unchanged(bytes);
    check_as_content(bytes);
    check_cut(bytes, 1 + (bytes.empty() ? 0U : static_cast<unsigned char>(bytes[0]) % 30U));
    return 0;
}
