// Begins a log with what a receiver sent before its first damaged frame: recorder SPECIFICATION DIRECTORY FRAMES
#include <glue/data_stream/Data_stream_factory.h>
#include <glue/data_stream/Loopback_data_stream.h>
#include <glue/logging/logging_source.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

/// Moves what fits of `from` into `to`, and logs it.
/// \return whether there was anything
static bool move_and_log(Data_stream& from, Data_stream& to) {
    unsigned char bytes[1024];
    const unsigned count = std::min<unsigned>(from.bytes_avail(), sizeof bytes);
    if (count == 0 || !from.get_data(bytes, count, 0))
        return false;
    const int moved = to.write_direct(bytes, count);
    if (moved <= 0)
        return false;
    logging_source_write(logging_source_receiver, bytes, bytes + moved);
    from.drop(static_cast<unsigned>(moved));
    return true;
}

int main(int argc, char** argv) {
    if (argc != 4)
        return 1;
    logging_source_use_time_of_writing(logging_source_receiver, true, 600);
    logging_source_enable(logging_source_receiver, true); // no directory yet: the bytes are kept in memory
    logging_source_configure(logging_source_receiver, false, 60000, 4 << 20, argv[2], "receiver", "raw", false);

    module_man modules;
    waiter_descriptor waiter;
    const auto stream = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
    if (!stream)
        return 1;
    stream->reg_rx_waiter(&waiter, false);

    Loopback_data_stream logged; // what is written to it is what is read from it
    Vesk_parser parser(&logged, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0, frames = std::atoi(argv[3]);
    bool recording = false;
    waiter_event event;
    while (frames > 0 && waiter.get_event(event, Atime::now() + 10000) == 0) {
        while (move_and_log(*stream, logged)) {
            while (const int kind = parser.get_packet(packet, sizeof packet, len)) {
                if (kind != Vesk_parser::frame)
                    continue;
                --frames;
                if (!recording && !Vesk_message(packet, static_cast<unsigned>(len)).check_checksum()) {
                    recording = true;
                    logging_source_enable(logging_source_receiver, true); // a file: the minute before comes first
                }
            }
        }
    }
    stream->dereg_rx_waiter();
    logging_source_flush(logging_source_receiver, false); // returns when all of it is in the file
    std::puts(recording ? "recorded" : "no damaged frame");
    return frames > 0 ? 1 : 0;
}
