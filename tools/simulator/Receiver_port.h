#pragma once

#include "Command_interpreter.h"

#include "common/Interrupt.h"

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/Atime.h>
#include <platform/waiter.h>

#include <memory>
#include <string>
#include <vector>

namespace simulator {

/// The receiver's end of a link that a stream makes: epochs go out, command lines come in and are answered.
///
/// Nothing is cut in two: a reply stands between two epochs. Nothing is lost either: a stream that takes nothing, be it
/// slow or not connected, holds the receiver up until it does.
class Receiver_port {
  public:
    /// `commands` and `interrupt` outlive the port.
    Receiver_port(std::unique_ptr<Event_sender_data_stream> stream, Command_interpreter& commands,
                  const Interrupt& interrupt);
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
    bool has_ended() const;
    void listen();
    bool answer();
    void take_line(char byte);
    void wait(Atime until);
    bool send(const unsigned char* bytes, std::size_t size);

    std::unique_ptr<Event_sender_data_stream> stream_;
    Command_interpreter& commands_;
    const Interrupt& interrupt_;
    waiter_descriptor waiter_;
    std::string line_;
    std::string replies_;
};

} // namespace simulator
