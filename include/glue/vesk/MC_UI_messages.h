#pragma once

#include <glue/vesk/Vesk_message.h>

#include <cstdint>

/// What a machine-control display shows: numbers in a frame, and the names of its modes. Any number that comes over
/// a link may be cast to a mode.
namespace MC_UI_messages {

enum control_mode_t : int {
    control_none = 0,
    control_closed_loop = 1,
    control_open_loop = 2,
    control_sasa_loop = 3,
    control_override_2ws = 4,
    control_override_4ws = 5,
    control_override_disabled = 6
};

/// Where the implement is. On purpose these begin at -1.
enum mc_implement_t : int { implement_rear = -1, implement_towed = 0, implement_front = 1 };

enum calibration_mode_t : int {
    calibration_none = 0,
    calibration_stop = 1,
    calibration_compass = 2,
    calibration_max = 3
};

enum modem_power_t : int {
    modem_both_off = 0,
    modem_int_on_ext_off = 1,
    modem_int_on_ext_100 = 2,
    modem_int_off_ext_500 = 3
};

// Names as the display shows them; "Unknown" and the type's name for a number without one

GLUE_EXPORT const char* to_str(control_mode_t value);
GLUE_EXPORT const char* to_str(mc_implement_t value);
GLUE_EXPORT const char* to_str(calibration_mode_t value);
GLUE_EXPORT const char* to_str(modem_power_t value);

/// Up to ten numbers for the display. What each means, and whether it is a float or a whole number, sender and display
/// have agreed on.
///
///     offset 10        uint8   number of items
///            11 + 4i   item i: float or little-endian int32
///            then the checksum
///
/// A view of a frame that somebody else owns; see `Vesk_message`. Not synchronised.
class GLUE_EXPORT Msg_ES : public Vesk_message {
  public:
    static constexpr int id = msg_id('E', 'S');
    static constexpr unsigned max_items = 10;
    static constexpr int item_size = 4;

    using Vesk_message::Vesk_message;
    ~Msg_ES() override;

    unsigned get_num_items() const;
    /// Makes the frame one for `count` items of `size` bytes, growing it up to its capacity: frame size, number of
    /// items, identifier and length field. \return false when `count` is above 10 - there are no items then - or there
    /// is no room
    bool set_num_items(unsigned count, int size);

    /// 0 for an `i` that is not below the number of items.
    float get_item(unsigned i) const;
    /// The same for an item that is a whole number: an addition.
    std::int32_t get_int_item(unsigned i) const;
    /// \return false, with nothing written, for an `i` that is not below the number of items
    bool set_item(unsigned i, float value);
    bool set_item(unsigned i, int value);
};

} // namespace MC_UI_messages
