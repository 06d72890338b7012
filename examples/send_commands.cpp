// Sends a receiver the command lines of standard input, each when the one before is answered, and prints the answers:
// send_commands tcpc:port=4001 < commands. A number behind that says how many seconds to wait for an answer: 5, unless
// said. What is sent is shown on standard error; without a stream that is all that happens.
#include <glue/data_stream/Data_stream_factory.h>
#include <glue/data_stream/Debug_data_stream.h>
#include <glue/data_stream/Diagnostic_data_stream.h>
#include <glue/data_stream/Event_receiver_data_stream.h>
#include <glue/data_stream/Line_data_stream_adapter.h>
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/module_man.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>

/// Prints the receiver's reply; what else it sends goes by. \return whether there was one in time
static bool show_reply(Vesk_parser& receiver, Atime deadline) {
    unsigned char packet[Vesk_parser::largest_packet];
    for (int len = 0; Atime::now() < deadline;) {
        if (receiver.get_packet(packet, sizeof packet, len) != Vesk_parser::reply)
            continue;
        const Vesk_response response(packet, static_cast<unsigned>(len));
        const char* const text = response.get_response_string();
        std::printf("%s %.*s\n", response.get_response_status() ? "accepted" : "refused",
                    static_cast<int>(std::strcspn(text, "\r\n")), text);
        return true;
    }
    std::puts("no answer");
    return false;
}

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a peer that is gone is told by the result of the write
    module_man modules;
    std::unique_ptr<Event_sender_data_stream> stream;
    std::optional<Event_receiver_data_stream> receiver;
    if (argc > 1) {
        stream = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
        if (!stream)
            return 1;
        receiver.emplace(*stream, modules);
        receiver->set_read_timeout(100); // between two looks at the clock
    }
    const int patience_ms = (argc > 2 ? std::atoi(argv[2]) : 5) * 1000;

    Debug_data_stream printed(false);
    Data_stream& destination = receiver ? static_cast<Data_stream&>(*receiver) : printed;
    unsigned char shown[Data_stream::rx_capacity];
    Diagnostic_data_stream tap(receiver ? "sent" : nullptr, destination, shown, sizeof shown);
    Vesk_parser answers(&destination, false);

    // A command that is cut off may mean something else: none is released before its line is complete.
    Posix_data_stream input(0, -1);
    Line_data_stream_adapter commands(std::numeric_limits<int>::max(), &input);
    while (input.bytes_avail(1U)) {
        if (commands.bytes_avail() == 0)
            continue;
        const bool sent = tap.write(commands) > 0 && commands.bytes_avail() == 0;
        tap.print_debug();
        if (!sent)
            std::fputs("it was not taken\n", stderr);
        if (!sent || (receiver && !show_reply(answers, Atime::now() + patience_ms)))
            return 1; // the commands that follow may rely on this one
    }
}
