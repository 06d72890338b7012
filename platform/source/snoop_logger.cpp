#include <platform/snoop_logger.h>

#include <platform/Debug.h>

void (*snoop_logger)(const char* text, unsigned int length) = nullptr;

namespace {

void write_piece(String_builder_base& text, bool to_printer) {
    if (to_printer)
        Debug::Print::printd(text.text(), static_cast<int>(text.length()));
    if (snoop_logger)
        snoop_logger(text.text(), text.length());
    text.clear();
}

} // namespace

void log_in_pieces(String_builder<port_log_piece_size>& text, bool to_printer, const unsigned char* begin,
                   const unsigned char* end) {
    if (begin == end)
        return;
    for (const unsigned char* next = begin;;) {
        next += text.append_ascii_esc(next, static_cast<unsigned int>(end - next));
        if (next == end)
            break;
        write_piece(text, to_printer);
    }
    if (text.free_space() == 0)
        write_piece(text, to_printer);
    text.append("\n");
    write_piece(text, to_printer);
}
