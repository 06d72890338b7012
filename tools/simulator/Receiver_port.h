#pragma once

#include "Automation.h"
#include "Command_interpreter.h"

#include "common/Interrupt.h"

#include <glue/data_stream/Event_sender_data_stream.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>
#include <platform/waiter.h>

#include <memory>
#include <string>
#include <vector>

namespace simulator {

/// The receiver's end of a link that a stream makes: epochs go out, command lines come in and are answered; so do
/// command frames for the automation, which the next epoch answers.
///
/// Nothing is cut in two: a reply stands between two epochs. Nothing is lost either: a stream that takes nothing, be it
/// slow or not connected, holds the receiver up until it does.
class Receiver_port {
  public:
    /// The others outlive the port.
    Receiver_port(std::unique_ptr<Event_sender_data_stream> stream, Command_interpreter& commands,
                  Automation& automation, const Interrupt& interrupt);
    ~Receiver_port();
    Receiver_port(const Receiver_port&) = delete;
    Receiver_port& operator=(const Receiver_port&) = delete;

    /// Why the port is no longer served.
    enum class Served {
        due,      ///< the time has come
        answered, ///< a command was: it may have changed what is due
        ended     ///< the link has ended, or the user has asked for the end
    };

    /// Answers commands until `due`. What has come already is answered in any case.
    Served serve_until(Atime due);

    /// Sends all of `bytes`, waiting as long as that takes. \return false when the link has ended
    bool send(const std::vector<unsigned char>& bytes);

  private:
    /// What else looks like a frame is part of a command line.
    class Command_frames_only : public Vesk_parser::Checker {
      public:
        bool check(Data_stream& stream, unsigned short identifier, int length) override;
    };

    bool has_ended() const;
    void listen();
    void take_frame(unsigned size);
    bool take_short_line();
    bool answer();
    void take_line(char byte);
    void wait(Atime until);
    bool send(const unsigned char* bytes, std::size_t size);

    std::unique_ptr<Event_sender_data_stream> stream_;
    Command_interpreter& commands_;
    Automation& automation_;
    const Interrupt& interrupt_;
    waiter_descriptor waiter_;
    Command_frames_only checker_;
    Vesk_parser parser_;
    unsigned char packet_[Vesk_parser::largest_packet];
    std::string line_;
    std::string replies_;
};

} // namespace simulator
