// An application and a simulated receiver in one process, to test the application without hardware: in_process_receiver
// 5
#include <glue/data_stream/Event_receiver_data_stream.h>
#include <glue/data_stream/Virtual_pair_data_stream.h>
#include <glue/vesk/GNSS_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/module_man.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace GNSS_messages;

/// The receiver: waits for the command "epochs,N", then drives north and sends N epochs.
static void simulate_receiver(Data_stream& line) {
    unsigned length = line.string_avail();
    for (; length == 0 && line.bytes_avail(line.bytes_avail() + 1); length = line.string_avail()) {
    }
    char command[32] = "";
    line.get_data(reinterpret_cast<unsigned char*>(command), length < sizeof command ? length : 0, 0);
    unsigned epochs = 0;
    std::sscanf(command, "epochs,%u", &epochs);

    const double radians_per_degree = std::acos(-1.0) / 180;
    unsigned char buffer[64];
    for (unsigned epoch = 0; epoch < epochs; ++epoch) {
        Msg_RT time(buffer, sizeof buffer);
        time.init();
        time.set_ms(100 * epoch);
        time.set_checksum(true);
        line.write(time, true);

        Msg_PG position(buffer, sizeof buffer);
        position.init();
        position.set_lat((52 + epoch * 1e-5) * radians_per_degree);
        position.set_lon(7.5 * radians_per_degree);
        position.set_hgt(60.25);
        position.set_checksum(true);
        line.write(position, true);
    }
}

/// The application: it would read a serial line in the same way.
static unsigned show_positions(Data_stream& receiver, unsigned wanted) {
    receiver.printf("epochs,%u\r\n", wanted);
    Vesk_parser parser(&receiver, false);
    unsigned char packet[Vesk_parser::largest_packet];
    unsigned ms = 0, shown = 0;
    for (int len = 0; shown < wanted && parser.get_packet(packet, sizeof packet, len) != Vesk_parser::nothing;) {
        const Vesk_message message(packet, static_cast<unsigned>(len));
        if (message.validate(Msg_RT::id)) {
            ms = Msg_RT(packet, message.get_size()).get_ms();
        } else if (message.validate(Msg_PG::id)) {
            const Msg_PG position(packet, message.get_size());
            std::printf("%u ms: %.7f %.7f\n", ms, position.get_lat_deg(), position.get_lon_deg());
            ++shown;
        }
    }
    return shown;
}

int main(int argc, char** argv) {
    const unsigned wanted = argc == 2 ? static_cast<unsigned>(std::atoi(argv[1])) : 10;
    module_man modules;
    Virtual_pair_data_stream line(&modules);
    line.part_a().set_read_timeout(0); // never blocks; the event receiver waits for bytes instead
    Event_receiver_data_stream port(line.part_a(), modules);
    std::thread receiver([&] { simulate_receiver(line.part_b()); });
    const unsigned shown = show_positions(port, wanted);
    receiver.join();
    return shown == wanted ? 0 : 1;
}
