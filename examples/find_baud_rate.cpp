// Finds the rate at which a receiver sends, and keeps the line at it: find_baud_rate DEVICE BAUD..., for example
// find_baud_rate /dev/ttyS1 9600 38400 115200
#include <glue/data_stream/Posix_serial_data_stream.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>

#include <cstdio>
#include <cstdlib>

constexpr int patience_ms = 5000; // noise that looks like the header of a long frame may hide a good one for this long
constexpr int read_ms = 100;

/// Reads until a good frame is received. \return null then, else what was received instead
static const char* listen(Posix_serial_data_stream& line) {
    line.drop_all();
    Vesk_parser parser(&line, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int length = 0;
    bool silent = true;
    for (const Atime end = Atime::now() + patience_ms; Atime::now() < end;) {
        const int kind = parser.get_packet(packet, sizeof packet, length);
        if (kind == Vesk_parser::frame && Vesk_message(packet, static_cast<unsigned>(length)).check_checksum())
            return nullptr;
        silent = silent && kind == Vesk_parser::nothing && line.bytes_avail() == 0;
    }
    return silent ? "nothing" : "noise";
}

int main(int argc, char** argv) {
    Posix_serial_data_stream line;
    if (argc < 3 || !line.open_from_args(argv[1])) {
        std::fputs("usage: find_baud_rate DEVICE BAUD...\n", stderr);
        return 1;
    }
    line.set_read_timeout(read_ms);
    Posix_data_stream::Commander commander; // sends a break, which is no byte
    if (line.init_commander(commander) && !commander.send_break(0))
        std::puts("a break cannot be sent"); // it wakes receivers that sleep

    Posix_serial_port::State state; // 8 bits, no parity, no handshake
    state.status.dtr = state.status.rts = 1;
    for (int i = 2; i < argc; ++i) {
        state.baud = std::atol(argv[i]);
        const char* const problem = line.set_state(state) ? listen(line) : "refused by the line";
        std::printf("%ld baud: %s\n", line.get_baudRate(), problem ? problem : "good frames");
        if (!problem)
            return 0;
    }
    line.restore();
    return 1;
}
