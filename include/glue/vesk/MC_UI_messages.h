#pragma once

#include <glue/vesk/Vesk_message.h>

#include <cstdint>

/// The contents of a machine-control display: numbers in a frame, and the names of its modes. Any number that a link
/// delivers may be cast to a mode.
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

/// The position of the implement. On purpose the values begin at -1.
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

// The names that the display shows; "Unknown" and the name of the type for any other number.

GLUE_EXPORT const char* to_str(control_mode_t value);
GLUE_EXPORT const char* to_str(mc_implement_t value);
GLUE_EXPORT const char* to_str(calibration_mode_t value);
GLUE_EXPORT const char* to_str(modem_power_t value);

/// Up to ten numbers for the display. Sender and display have agreed on the meaning of each, and whether it is a float
/// or an integer.
///
///     offset 10        uint8   number of items
///            11 + 4i   item i: float or little-endian int32
///            then the checksum
///
/// A view of a frame in a buffer that the caller owns; see `Vesk_message`. Not synchronised.
class GLUE_EXPORT Msg_ES : public Vesk_message {
  public:
    static constexpr int id = msg_id('E', 'S');
    static constexpr unsigned max_items = 10;
    static constexpr int item_size = 4;

    using Vesk_message::Vesk_message;
    ~Msg_ES() override;

    unsigned get_num_items() const;
    /// Makes the message a frame of `count` items of `size` bytes: writes frame size, number of items, identifier and
    /// length field. The frame may grow up to the buffer's capacity.
    /// \return false when `count` is above 10, with the number of items set to 0, or when the frame does not fit
    bool set_num_items(unsigned count, int size);

    /// \return 0 for an `i` that is not below the number of items
    float get_item(unsigned i) const;
    /// The same for an item that is an integer: an addition.
    std::int32_t get_int_item(unsigned i) const;
    /// \return false, with nothing written, for an `i` that is not below the number of items
    bool set_item(unsigned i, float value);
    bool set_item(unsigned i, int value);
};

} // namespace MC_UI_messages
