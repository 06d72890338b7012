#pragma once

#include <glue/vesk/NMEA_messages.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_printer.h>

#include <string_view>

/// The lines that the monitor shows for messages: those of `Vesk_printer`, and, for what that does not know, lines in
/// the same two forms:
///
///     GS heart=7 state=AUTOMATION_ACTIVE prod=1 curv=0.012500                  GS,7,5,1,0.012500
///     GC heart=7 ready=1 requests={0,0,0,0,1,1} state=... prod=0 curv=0.01     GC,7,1,{0,0,0,0,1,1},0,0,0.010000
///     ES items=2 1 0.25                                                        ES,2,1,0.25
///     ER01A{5,value out of range} error=5 text=value out of range              ER01A{...},5,value out of range
///         GGA lat=52.25 lon=10.5 alt=78.5m fix=4 sats=12 hdop=0.8                  GGA,52.25,10.5,78.5,4,12,0.8
///
/// Requests stand in the order in which the library prints them, number 5 first. An item of ES does not say what it is;
/// what would be no sensible float (one that is no number, or nearer to 0 than any that is used) is shown as a whole
/// number. Frames of the right name but another length are shown as bytes, as unknown ones are.
class Message_lines {
  public:
    /// \param labelled  for people; else for files
    explicit Message_lines(bool labelled) : labelled_(labelled), printer_(labelled) {}

    /// Writes a frame's line, without its end, as far as there is room. Nothing when the printer has said something
    /// about the frame elsewhere instead.
    /// \return whether it is known what the frame says; one that is not has been reported on standard error
    bool print_frame(const Vesk_message& frame, char* line, unsigned room) const;

    /// Writes the line of a reply of `len` bytes: its text without its line end and, for an error that is known, its
    /// code and phrase.
    /// \return the line's length
    unsigned print_reply(const unsigned char* reply, unsigned len, char* line, unsigned room) const;

    /// Writes the line of a position sentence.
    void print_position(const NMEA_messages::Msg_NMEA_GGA& position, char* line, unsigned room) const;

  private:
    void print_status(const Vesk_message& frame, char* line, unsigned room) const;
    void print_command(const Vesk_message& frame, char* line, unsigned room) const;
    void print_items(const Vesk_message& frame, char* line, unsigned room) const;

    bool labelled_;
    Vesk_printer printer_;
};
