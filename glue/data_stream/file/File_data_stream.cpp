#include <glue/data_stream/File_data_stream.h>

#include <platform/Debug.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

File_data_stream::File_data_stream() : File_data_stream(nullptr, nullptr) {}

File_data_stream::File_data_stream(std::FILE* in, std::FILE* out) : read_file(in), write_file(out) {
    format_description("DSFile(%p)", static_cast<void*>(this));
}

File_data_stream::~File_data_stream() {
    close_read();
    close_write();
}

bool File_data_stream::open_read(const char* path) {
    read_file = std::fopen(path, "rb");
    if (!read_file) {
        report_failed_opening(path);
        std::exit(exit_cannot_read);
    }
    format_description("DSFile(%p,%s, r)", static_cast<void*>(this), path);
    return true;
}

bool File_data_stream::open_read(int fd) {
    read_file = fdopen(fd, "rb");
    if (!read_file) {
        Debug::Print::dprint("Error opening fd [%i]\n", fd);
        std::exit(exit_cannot_read);
    }
    format_description("DSFile(%p,%d, r)", static_cast<void*>(this), fd);
    return true;
}

bool File_data_stream::open_write(const char* path) {
    write_file = std::fopen(path, "ab");
    if (!write_file) {
        report_failed_opening(path);
        std::exit(exit_cannot_write);
    }
    format_description("DSFile(%p,%s, w)", static_cast<void*>(this), path);
    return true;
}

void File_data_stream::report_failed_opening(const char* path) {
    Debug::Print::dprint("Error opening file [%s]\n", path);
}

bool File_data_stream::close_read() {
    if (!read_file)
        return false;
    std::fclose(read_file);
    read_file = nullptr;
    return true;
}

bool File_data_stream::close_write() {
    if (!write_file)
        return false;
    std::fflush(write_file);
    fsync(fileno(write_file));
    std::fclose(write_file);
    write_file = nullptr;
    return true;
}

bool File_data_stream::exists(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno != ENOENT;
    close(fd);
    return true;
}

int File_data_stream::get_data(int n) {
    if (n == 0)
        return 1;
    if (n < 0 || !read_file)
        return 0;
    for (int i = 0; i < n; ++i) {
        const int byte = std::fgetc(read_file);
        if (byte == EOF)
            return 0;
        rx_buffer.push(static_cast<unsigned char>(byte));
    }
    return 1;
}

int File_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (!write_file)
        return -1;
    return static_cast<int>(std::fwrite(data, 1, len, write_file));
}

int File_data_stream::get_length() const {
    std::fpos_t position;
    if (!read_file || std::fgetpos(read_file, &position) != 0)
        return -1;
    const long length = std::fseek(read_file, 0, SEEK_END) == 0 ? std::ftell(read_file) : -1;
    const bool is_back = std::fsetpos(read_file, &position) == 0;
    return is_back && length <= std::numeric_limits<int>::max() ? static_cast<int>(length) : -1;
}
