#include <glue/data_stream/Diagnostic_data_stream.h>

#include <platform/Debug.h>

#include <algorithm>

using Debug::Print;

Diagnostic_data_stream::Diagnostic_data_stream(Data_stream& write_to)
    : Diagnostic_data_stream(nullptr, write_to, nullptr, 0) {}

Diagnostic_data_stream::Diagnostic_data_stream(const char* shown_name, Data_stream& write_to, unsigned char* buffer,
                                               unsigned long size)
    : target(write_to),
      name(shown_name),
      capture(buffer),
      capture_size(static_cast<unsigned int>(size)),
      capture_fill(0) {}

Diagnostic_data_stream::~Diagnostic_data_stream() = default;

int Diagnostic_data_stream::get_data(int n) {
    return n == 0;
}

int Diagnostic_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (name) {
        if (capture && capture_size != 0)
            collect(data, len);
        else
            print_debug(data, len);
    }
    return target.__write(data, len);
}

/// Puts the bytes into the buffer and shows it whenever it was full before a piece came.
///
/// Every piece is copied from the start of `data`, not from where the piece before it ended. That is on purpose: a
/// write that passes the buffer's end appears as its own beginning, repeated.
void Diagnostic_data_stream::collect(const unsigned char* data, unsigned int len) {
    while (capture_size - capture_fill < len)
        len -= fill_up(data, len);
    fill_up(data, len);
}

/// Copies as many of `len` bytes as fit; a buffer that was full already is shown and emptied. Returns the count copied.
unsigned int Diagnostic_data_stream::fill_up(const unsigned char* data, unsigned int len) {
    const unsigned int room = capture_size - capture_fill;
    const unsigned int copied = std::min(room, len);
    std::copy_n(data, copied, capture + capture_fill);
    capture_fill += copied;
    if (room == 0)
        print_debug();
    return copied;
}

void Diagnostic_data_stream::print_debug(const unsigned char* data, unsigned int len) {
    if (!name)
        return;
    Print::dprint_ts("%s [", name);
    Print::printascii(data, len);
    Print::dprint("]\n");
}

void Diagnostic_data_stream::print_debug() {
    print_debug(capture, capture_fill);
    capture_fill = 0;
}
