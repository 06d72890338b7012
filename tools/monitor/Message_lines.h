#pragma once

#include <glue/vesk/NMEA_messages.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_printer.h>

#include <string_view>

/// The lines that the monitor prints for messages: those of `Vesk_printer` and, for messages that it does not know,
/// lines in the same two forms:
///
///     GS heart=7 state=AUTOMATION_ACTIVE prod=1 curv=0.012500                  GS,7,5,1,0.012500
///     GC heart=7 ready=1 requests={0,0,0,0,1,1} state=... prod=0 curv=0.01     GC,7,1,{0,0,0,0,1,1},0,0,0.010000
///     ES items=2 1 0.25                                                        ES,2,1,0.25
///     ER01A{5,value out of range} error=5 text=value out of range              ER01A{...},5,value out of range
///         GGA lat=52.25 lon=10.5 alt=78.5m fix=4 sats=12 hdop=0.8                  GGA,52.25,10.5,78.5,4,12,0.8
///
/// Requests are in the order in which the library prints them, number 5 first. An item of ES does not carry its type:
/// it is printed as a float when that is 0 or a normal number, and otherwise as an integer. A frame with a known
/// identifier and a wrong length is printed as bytes, like an unknown frame.
class Message_lines {
  public:
    /// \param labelled  the form for people; false: comma-separated, for files
    explicit Message_lines(bool labelled) : labelled_(labelled), printer_(labelled) {}

    /// Writes a frame's line, without its line end, as far as it fits into `size` bytes. Empty when the printer has
    /// reported the frame on standard error instead.
    /// \return false for an unknown frame, which was reported on standard error
    bool print_frame(const Vesk_message& frame, char* line, unsigned size) const;

    /// Writes the line of a reply of `len` bytes: its text without the line end and, for a known error, the code and
    /// the phrase.
    /// \return the line's length
    unsigned print_reply(const unsigned char* reply, unsigned len, char* line, unsigned size) const;

    /// The line of an acknowledgement or a refusal.
    static const char* acknowledgement_text(unsigned char byte);

    /// Writes the line of a position sentence.
    void print_position(const NMEA_messages::Msg_NMEA_GGA& position, char* line, unsigned size) const;

  private:
    void print_status(const Vesk_message& frame, char* line, unsigned size) const;
    void print_command(const Vesk_message& frame, char* line, unsigned size) const;
    void print_items(const Vesk_message& frame, char* line, unsigned size) const;

    bool labelled_;
    Vesk_printer printer_;
};
