// Shows the messages for a machine's display from standard input:
// receiver_simulator --automation --display | show_display
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/MC_UI_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <cstdio>

using namespace MC_UI_messages;

/// The items that sender and display have agreed on: mode, implement, curvature, speed; two more modes are optional.
enum Item : unsigned { item_control, item_implement, item_curvature, item_speed, item_calibration, item_modem };

template <typename Mode>
static const char* name_of(const Msg_ES& message, Item item) {
    return to_str(static_cast<Mode>(message.get_int_item(item)));
}

static void show(const Msg_ES& message) {
    std::printf("%s, implement %s, curvature %.4f, %.2f m/s", name_of<control_mode_t>(message, item_control),
                name_of<mc_implement_t>(message, item_implement), static_cast<double>(message.get_item(item_curvature)),
                static_cast<double>(message.get_item(item_speed)));
    if (message.get_num_items() > item_calibration)
        std::printf(", calibration %s", name_of<calibration_mode_t>(message, item_calibration));
    if (message.get_num_items() > item_modem)
        std::printf(", modem %s", name_of<modem_power_t>(message, item_modem));
    std::printf("\n");
}

int main() {
    Posix_data_stream stream(0, -1);
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    for (int len = 0; const int kind = parser.get_packet(packet, sizeof packet, len);) {
        const Msg_ES message(packet, static_cast<unsigned>(len));
        if (kind == Vesk_parser::frame && message.get_msg_id() == Msg_ES::id && message.check_checksum())
            show(message);
    }
}
