#pragma once

#include <glue/vesk/Vesk_error_decoder.h>

#include <string>
#include <string_view>

namespace simulator {

/// Obeys the command lines that the receiver is sent, and composes its replies.
///
///     version             its name: "{receiver_simulator}"
///     rate                epochs a second: "{10}"
///     rate,HZ             changes that; 0: as fast as they are read
///     messages,on         sends epochs
///     messages,off        sends none; their time passes
///
/// A command may begin with an identifier that its sender chose, as in "%7%version": the reply begins with the same
/// one. Commands are case-sensitive; blanks at either end do not matter.
class Command_interpreter {
  public:
    /// What commands can change.
    struct Settings {
        double rate = 10;
        bool messages = true;
    };

    /// Lines are read up to this length; a longer one is no command.
    static constexpr unsigned longest_line = 255;

    explicit Command_interpreter(Settings settings) : settings_(settings) {}

    const Settings& settings() const { return settings_; }

    /// Obeys a line, given without its line end.
    /// \return the reply as a whole message: "RE" when the line was obeyed, "ER" with the reason when it was not; ""
    ///         for a blank line
    std::string reply_to(std::string_view line);

  private:
    /// The result of a command: the reply's identifier and its text.
    struct Answer {
        const char* identifier;
        std::string text;
    };

    static Answer done(std::string text = {});
    static Answer refused(Vesk::vesk_ret_t code);
    static std::string message(const Answer& answer, std::string_view request);

    Answer obey(std::string_view command);
    Answer set_rate(std::string_view value);
    Answer switch_messages(std::string_view value);

    Settings settings_;
};

} // namespace simulator
