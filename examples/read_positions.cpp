// Prints the receiver's positions from standard input: receiver_simulator | read_positions
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <cstdio>

int main() {
    Posix_data_stream stream(0, -1);
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    for (int len = 0; parser.get_packet(packet, sizeof packet, len) != Vesk_parser::nothing;) {
        const GNSS_messages::Msg_PG position(packet, static_cast<unsigned>(len));
        if (position.validate(GNSS_messages::Msg_PG::id))
            std::printf("%.7f %.7f %.3f\n", position.get_lat_deg(), position.get_lon_deg(), position.get_hgt());
    }
}
