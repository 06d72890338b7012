// Sends the output of a program to the device at a serial line, for example corrections to a receiver, and prints the
// line's settings and counters: feed_line /dev/ttyS1:38400 PROGRAM ARGUMENT...
#include <glue/data_stream/Posix_serial_data_stream.h>
#include <glue/data_stream/Process_data_stream.h>
#include <glue/data_stream/Restream_data_stream_adapter.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>

static void print_settings(Posix_serial_port& port) {
    static const char* const handshakes[] = {"none", "RTS/CTS", "XON/XOFF"};
    Posix_serial_port::Format format;
    Posix_serial_port::Status status;
    port.get_format(format);
    const bool has_modem_lines = port.get_status(status);
    std::printf("%ld bits/s, %d%c%d, handshake %s\n", port.get_baudRate(), format.bits, "NOE"[format.parity],
                format.stop_bits, handshakes[status.handshake]);
    if (has_modem_lines)
        std::printf("DTR %d, RTS %d, CTS %d, DSR %d\n", status.dtr, status.rts, status.cts, status.dsr);
}

static void print_counters(Posix_serial_port& port) {
    Posix_serial_port::Counters counted;
    if (port.get_counters(counted))
        std::printf("counted by the system: %d sent, %d received, %d framing errors, %d overruns\n", counted.sent,
                    counted.received, counted.framing_errors, counted.overruns);
}

/// Sends a break, which ends an unfinished message of another sender. Prints the device's reply to it, if one arrives
/// within a second.
static void greet(Posix_serial_data_stream& device) {
    Posix_serial_data_stream::Commander commander;
    if (device.init_commander(commander))
        commander.send_break(0);
    device.set_read_timeout(1000);
    unsigned length = device.string_avail();
    for (; length == 0 && device.bytes_avail(device.bytes_avail() + 1); length = device.string_avail()) {
    }
    unsigned char line[80];
    if (length > 0 && length <= sizeof line && device.get_data(line, length, 0))
        std::printf("device: %.*s\n", static_cast<int>(length), reinterpret_cast<const char*>(line));
}

/// \return whether all output of the program was sent
static bool feed(Posix_serial_data_stream& device, Process_data_stream& program) {
    // Copying from a stream holds its lock: with a slow line, the program's output could not be received meanwhile.
    Restream_data_stream_adapter output(&program);
    waiter_descriptor arrivals;
    program.reg_rx_waiter(&arrivals, false);
    unsigned long long sent = 0;
    bool running = true, accepted = true;
    while (running && accepted) {
        running = program.is_running(); // checked first: once it has ended, all of its output was received
        while (accepted && output.bytes_avail() != 0) {
            const int written = device.write(output);
            accepted = written > 0;
            sent += accepted ? static_cast<unsigned>(written) : 0;
        }
        waiter_event event;
        if (running)
            arrivals.get_event(event, Atime::now() + 100);
    }
    program.dereg_rx_waiter();
    std::printf("%llu bytes sent\n", sent);
    return accepted;
}

int main(int argc, char** argv) {
    Posix_serial_data_stream device;
    if (argc < 3 || !device.open_from_args(argv[1])) {
        std::fputs("usage: feed_line DEVICE[:BAUD[:rs485]] PROGRAM [ARGUMENT]...\n", stderr);
        return 1;
    }
    print_settings(device);
    greet(device);
    module_man modules;
    Process_data_stream program(&modules, argv + 2, nullptr);
    const bool fed = feed(device, program);
    tcdrain(device.get_fd()); // restoring takes effect at once, also on bytes that were not transmitted yet
    print_counters(device);
    device.restore();
    return fed ? 0 : 1;
}
