#pragma once

#include <glue/vesk/GNSS_messages.h>

/// Turns a received frame into one line of text, for a log or a diagnostic view.
///
///     Vesk_printer printer(true);
///     char line[256];
///     printer.snprint(frame, line, sizeof line);   // "RT ms=86399999"; with false "RT,86399999"
///
/// The labelled form, for people, writes each value after its name; the comma form, for files, separates the values by
/// commas. Neither writes a line end. A line that does not fit is cut without a message: at most `size` - 1 characters
/// and a NUL are written. With a `size` of 0 or less nothing is written.
///
/// The decimal point is the one of the process's LC_NUMERIC, as with every printf.
///
/// The printer has no state except its form. Callers that do not print at the same time may share it.
class GLUE_EXPORT Vesk_printer {
    bool verbose_;

  public:
    /// \param labelled  true for the labelled form, false for the comma form
    explicit Vesk_printer(bool labelled) : verbose_(labelled) {}

    /// Prints any frame by its identifier: the messages below in their forms, the receiver's texts ("RE", "ER", "DL",
    /// "NP") unchanged, everything else as a line of hexadecimal bytes.
    /// \return for a message as below; for a text its full length, even when it was cut or not written at all; 0 for an
    ///         unknown identifier, which is also reported on standard error
    int snprint(const Vesk_message& m, char* buf, int size) const;

    // ---- Messages: each prints a frame as one of its kind, whatever the identifier and the length are ----
    // \return the number of characters in `buf`

    int snprint(const GNSS_messages::Msg_PG& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_RT& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_RD& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_GT& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_NT& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_SG& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_PS& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_PV& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_DP& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_ST& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_EE& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_GA& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_NA& m, char* buf, int size) const;

    // ---- Lists: the same. A frame shorter than the list's fixed part is reported on standard output ----
    // \return the number of characters in `buf`; 0 for a frame that is too short, which leaves `buf` unchanged

    int snprint(const GNSS_messages::Msg_SI& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_NN& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_SS& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_TC& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_EL& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_AZ& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_EC& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_E1& m, char* buf, int size) const;
    int snprint(const GNSS_messages::Msg_E2& m, char* buf, int size) const;
};
