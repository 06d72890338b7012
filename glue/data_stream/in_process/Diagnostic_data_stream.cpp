#include <glue/data_stream/Diagnostic_data_stream.h>

#include <platform/Debug.h>

#include <algorithm>

Diagnostic_data_stream::Diagnostic_data_stream(Data_stream& write_to)
    : Diagnostic_data_stream(nullptr, write_to, nullptr, 0) {}

Diagnostic_data_stream::Diagnostic_data_stream(const char* shown_name, Data_stream& write_to, unsigned char* buffer,
                                               unsigned long size)
    : target_(write_to),
      name_(shown_name),
      capture_(buffer),
      capture_size_(static_cast<unsigned int>(size)),
      capture_fill_(0) {}

Diagnostic_data_stream::~Diagnostic_data_stream() = default;

int Diagnostic_data_stream::get_data(int n) {
    return fetch_nothing(n);
}

int Diagnostic_data_stream::_write(const unsigned char* data, unsigned int len) {
    if (name_) {
        if (capture_ && capture_size_ != 0)
            collect(data, len);
        else
            print_debug(data, len);
    }
    return target_.__write(data, len);
}

/// Collects the bytes in the buffer and prints it whenever it was full before a piece.
///
/// Every piece is copied from the start of `data`, not from where the previous piece ended. That is on purpose: of a
/// write that exceeds the buffer, the beginning is printed repeatedly.
void Diagnostic_data_stream::collect(const unsigned char* data, unsigned int len) {
    while (capture_size_ - capture_fill_ < len)
        len -= fill_up(data, len);
    fill_up(data, len);
}

/// Copies as many of `len` bytes as fit; a buffer that was full before is printed and emptied. Returns the count
/// copied.
unsigned int Diagnostic_data_stream::fill_up(const unsigned char* data, unsigned int len) {
    const unsigned int free_space = capture_size_ - capture_fill_;
    const unsigned int copied = std::min(free_space, len);
    std::copy_n(data, copied, capture_ + capture_fill_);
    capture_fill_ += copied;
    if (free_space == 0)
        print_debug();
    return copied;
}

void Diagnostic_data_stream::print_debug(const unsigned char* data, unsigned int len) {
    if (!name_)
        return;
    Debug::Print::dprint_ts("%s [", name_);
    Debug::Print::printascii(data, len);
    Debug::Print::dprint("]\n");
}

void Diagnostic_data_stream::print_debug() {
    print_debug(capture_, capture_fill_);
    capture_fill_ = 0;
}
