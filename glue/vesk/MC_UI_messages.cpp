#include <glue/vesk/MC_UI_messages.h>

namespace MC_UI_messages {

namespace {

constexpr unsigned number_of_items = 10;
constexpr unsigned first_item = 11;
constexpr int frame_without_items = 12; // the checksum included

unsigned offset_of(unsigned item) {
    return first_item + static_cast<unsigned>(Msg_ES::item_size) * item;
}

} // namespace

const char* to_str(control_mode_t value) {
    switch (value) {
    case control_none:
        return "None";
    case control_closed_loop:
        return "Closed Loop";
    case control_open_loop:
        return "Open Loop";
    case control_sasa_loop:
        return "SASA Loop";
    case control_override_2ws:
        return "Override 2WS";
    case control_override_4ws:
        return "Override 4WS";
    case control_override_disabled:
        return "Override Disabled";
    }
    return "Unknown control_mode_t";
}

const char* to_str(mc_implement_t value) {
    switch (value) {
    case implement_rear:
        return "Rear";
    case implement_towed:
        return "Towed";
    case implement_front:
        return "Front";
    }
    return "Unknown mc_implement_t";
}

const char* to_str(calibration_mode_t value) {
    switch (value) {
    case calibration_none:
        return "None";
    case calibration_stop:
        return "Stop";
    case calibration_compass:
        return "Compass";
    case calibration_max:
        return "Max";
    }
    return "Unknown calibration_mode_t";
}

const char* to_str(modem_power_t value) {
    switch (value) {
    case modem_both_off:
        return "Both Off";
    case modem_int_on_ext_off:
        return "Int On/Ext Off";
    case modem_int_on_ext_100:
        return "Int On/Ext 100";
    case modem_int_off_ext_500:
        return "Int Off/Ext 500";
    }
    return "Unknown modem_power_t";
}

Msg_ES::~Msg_ES() = default;

unsigned Msg_ES::get_num_items() const {
    return get_uint8(number_of_items);
}

bool Msg_ES::set_num_items(unsigned count, int size) {
    if (count > max_items) {
        set_uint8(number_of_items, 0);
        return false;
    }
    const long long frame = static_cast<long long>(count) * size + frame_without_items;
    if (size < 0 || frame > get_capacity() || !set_size(static_cast<unsigned>(frame)))
        return false;
    set_uint8(number_of_items, static_cast<std::uint8_t>(count));
    return setup(reinterpret_cast<const unsigned char*>("ES"), static_cast<int>(frame));
}

float Msg_ES::get_item(unsigned i) const {
    return i < get_num_items() ? get_float(offset_of(i)) : 0.0F;
}

std::int32_t Msg_ES::get_int_item(unsigned i) const {
    return i < get_num_items() ? get_int32_le(offset_of(i)) : 0;
}

bool Msg_ES::set_item(unsigned i, float value) {
    return i < get_num_items() && set_float(offset_of(i), value);
}

bool Msg_ES::set_item(unsigned i, int value) {
    return i < get_num_items() && set_int32_le(offset_of(i), value);
}

} // namespace MC_UI_messages
