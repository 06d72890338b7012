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

/// The receiver's end of a stream: it sends epochs, and receives and answers command lines. It also receives command
/// frames for the automation, which the next epoch answers.
///
/// Replies are sent between epochs, never within one. Nothing is lost: while the stream accepts no bytes, because it is
/// slow or not connected, the receiver waits.
class Receiver_port {
  public:
    /// The others outlive the port.
    Receiver_port(std::unique_ptr<Event_sender_data_stream> stream, Command_interpreter& commands,
                  Automation& automation, const Interrupt& interrupt);
    ~Receiver_port();
    Receiver_port(const Receiver_port&) = delete;
    Receiver_port& operator=(const Receiver_port&) = delete;

    /// Why `serve_until` returned.
    enum class Served {
        due,      ///< `due` is reached
        answered, ///< a command was answered: it may have changed when the next epoch is due
        ended     ///< the link has ended, or a signal ends the program
    };

    /// Answers commands until `due`; commands that were received already are always answered.
    Served serve_until(Atime due);

    /// Sends all of `bytes`, without a time limit. \return false when the link has ended
    bool send(const std::vector<unsigned char>& bytes);

  private:
    /// Every other frame is part of a command line.
    class Command_frames_only : public Vesk_parser::Checker {
      public:
        bool check(Data_stream& stream, unsigned short identifier, int length) override;
    };

    bool has_ended() const;
    void obey_received();
    void take_frame(unsigned size);
    bool take_short_line();
    bool send_replies();
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
