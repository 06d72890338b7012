#include <glue/data_stream/Posix_serial_data_stream.h>

#include <fcntl.h>

namespace {

constexpr const char* class_word = "DSPosSer";

} // namespace

Posix_serial_data_stream::Posix_serial_data_stream() : Posix_data_stream(class_word) {}

bool Posix_serial_data_stream::open(const char* path, bool create, bool blocking, bool append) {
    const bool opened = Posix_data_stream::open(path, create, blocking, append);
    format_description("%s(%p, %s)", class_word, static_cast<void*>(this), path);
    return init() && opened; // without a descriptor, `init` forgets the settings of the line before
}

bool Posix_serial_data_stream::open_default(const char* device) {
    return open(device, false, true, false);
}

bool Posix_serial_data_stream::open_nonintrusive(const char* path) {
    deinit();
    if (!open_by_name(path, O_RDONLY | O_NOCTTY, 0, Direction::both))
        return false;
    format_description("%s(%p, %s)", class_word, static_cast<void*>(this), path);
    return true;
}

bool Posix_serial_data_stream::close() {
    if (!Posix_data_stream::close())
        return false;
    deinit();
    return true;
}

int Posix_serial_data_stream::get_fd() const {
    return read_fd == write_fd ? read_fd.load() : -1;
}

const char* Posix_serial_data_stream::get_help() {
    return "-c|--comm device[:baud]";
}
