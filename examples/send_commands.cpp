// Sends command lines from standard input to a receiver, each after the reply to the one before, and prints the
// replies: send_commands tcpc:port=4001 < commands. An optional second argument is the time limit for a reply in
// seconds, 5 by default. Sent commands are shown on standard error; without a stream they are only shown.
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

/// Prints the next reply of the receiver and skips everything else. \return false when the deadline passed before
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
    std::signal(SIGPIPE, SIG_IGN); // the result of a write reports that the peer is gone
    module_man modules;
    std::unique_ptr<Event_sender_data_stream> stream;
    std::optional<Event_receiver_data_stream> receiver;
    if (argc > 1) {
        stream = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
        if (!stream)
            return 1;
        receiver.emplace(*stream, modules);
        receiver->set_read_timeout(100); // between two checks of the deadline
    }
    const int limit_ms = (argc > 2 ? std::atoi(argv[2]) : 5) * 1000;

    Debug_data_stream printed(false);
    Data_stream& destination = receiver ? static_cast<Data_stream&>(*receiver) : printed;
    unsigned char shown[Data_stream::rx_capacity];
    Diagnostic_data_stream tap(receiver ? "sent" : nullptr, destination, shown, sizeof shown);
    Vesk_parser answers(&destination, false);

    // A part of a command may have another meaning: none is released before its line is complete.
    Posix_data_stream input(0, -1);
    Line_data_stream_adapter commands(std::numeric_limits<int>::max(), &input);
    while (input.bytes_avail(1U)) {
        if (commands.bytes_avail() == 0)
            continue;
        const bool sent = tap.write(commands) > 0 && commands.bytes_avail() == 0;
        tap.print_debug();
        if (!sent)
            std::fputs("the command was not sent\n", stderr);
        if (!sent || (receiver && !show_reply(answers, Atime::now() + limit_ms)))
            return 1; // the commands that follow may depend on this one
    }
}
