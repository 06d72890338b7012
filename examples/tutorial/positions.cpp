// Prints the first positions that a receiver sends: positions SPECIFICATION COUNT
#include <glue/data_stream/Data_stream_factory.h>
#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>
#include <cstdlib>

using GNSS_messages::Msg_PG;

int main(int argc, char** argv) {
    if (argc != 3)
        return 1;
    module_man modules;
    waiter_descriptor waiter;
    const auto stream = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
    if (!stream)
        return 1;
    stream->reg_rx_waiter(&waiter, false);

    Vesk_parser parser(stream.get(), false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0, positions = std::atoi(argv[2]), damaged = 0;
    waiter_event event;
    while (positions > 0 && waiter.get_event(event, Atime::now() + 10000) == 0) {
        int kind = Vesk_parser::nothing;
        while (positions > 0 && (kind = parser.get_packet(packet, sizeof packet, len)) != Vesk_parser::nothing) {
            if (kind != Vesk_parser::frame)
                continue; // a reply, an acknowledgement or noise
            const Msg_PG position(packet, static_cast<unsigned>(len));
            if (!position.check_checksum()) {
                ++damaged;
            } else if (position.validate(Msg_PG::id)) {
                std::printf("%.7f %.7f %.2f m\n", position.get_lat_deg(), position.get_lon_deg(), position.get_hgt());
                --positions;
            }
        }
    }
    stream->dereg_rx_waiter();
    std::printf("%d damaged frames\n", damaged);
    return positions > 0 ? 1 : 0;
}
