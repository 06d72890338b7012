#pragma once

#include <glue/vesk/Vesk_message.h>

/// The messages between the automation controller and the unit: the state of the automation, and requests to it.
///
///     offset 5   uint8   1
///            6   uint8   heartbeat: counts up, which shows the peer that the sender works
///            7   bits 4 to 7  the automation's state     bit 0  product flag
///            8   bit 6  ready     bits 5 to 0  six requests (commands only)
///            9   float  curvature
///           13   checksum
///
/// Views of a frame in a buffer that the caller owns; see `Vesk_message`. A field beyond the end of the frame reads as
/// 0 and is not written. The setters and `init` are additions, for senders. Not synchronised.
namespace TIM_messages {

/// The states of the automation; the other numbers from 0 to 15 have no meaning.
enum Automation_state {
    automation_unavailable = 0,
    automation_not_ready = 1,
    automation_ready_to_enabled = 2,
    automation_enabled = 3,
    automation_active = 5,
    automation_fault = 13,
    automation_error = 14,
    automation_not_available = 15
};

/// The name of a state, for example "AUTOMATION_ACTIVE"; "UNKNOWN" for a number without a name.
GLUE_EXPORT const char* state_text(unsigned state);

/// The part that both messages have in common.
class GLUE_EXPORT TIM_Vesk_message : public Vesk_message {
  public:
    /// Bytes of a frame without its line end.
    static constexpr unsigned frame_size = 14;

    using Vesk_message::Vesk_message;
    ~TIM_Vesk_message() override;

    /// As in every message; then writes 1 into the first byte of the body.
    bool setup(const unsigned char* src, int size) override;

    /// Prints the message through the debug printer when category `level` is on. A status or command of a wrong length
    /// is reported instead; on purpose the report compares the length of a body with that of a frame.
    void print(unsigned level) const;

    unsigned get_heart() const;
    bool set_heart(unsigned value);
    /// 0 to 15, see `Automation_state`.
    unsigned get_state() const;
    bool set_state(unsigned value);
    bool get_prod() const;
    bool set_prod(bool on);
    float get_curv() const;
    bool set_curv(float value);

  protected:
    /// Makes an empty frame with this identifier. \return false when it exceeds the buffer
    bool init_frame(const char* identifier);
};

/// Status, from the controller.
class GLUE_EXPORT Msg_GS : public TIM_Vesk_message {
  public:
    static constexpr int id = msg_id('G', 'S');

    using TIM_Vesk_message::TIM_Vesk_message;
    ~Msg_GS() override;
    bool init();
};

/// Command, to the controller.
class GLUE_EXPORT Msg_GC : public TIM_Vesk_message {
  public:
    static constexpr int id = msg_id('G', 'C');
    static constexpr unsigned requests = 6;

    using TIM_Vesk_message::TIM_Vesk_message;
    ~Msg_GC() override;
    bool init();

    bool get_ready() const;
    bool set_ready(bool on);
    /// \param n  0 to 5; false for any other
    bool get_request(unsigned n) const;
    bool set_request(unsigned n, bool on);
};

} // namespace TIM_messages
