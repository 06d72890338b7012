#pragma once

#include <platform/TCP_server_base.h>

/// A TCP server that stores what it receives straight into the registered ring and logs its traffic itself, with one
/// call for the whole life of its thread and one for its end.
///
/// Received bytes are announced through `handle_direct_read`; without a registered ring they come through
/// `handle_incoming_data`. With logging on, every piece received and written is logged too, with the number of the
/// client: to the debug printer and to `snoop_logger`. Before the derived class's members die, it calls `wait_quit()`.
class TCP_server_buffered : public TCP_server_base {
  public:
    /// \param port  what `run_blocking()` opens; 0 lets the system choose
    explicit TCP_server_buffered(int port);

    /// Opens the port and serves until asked to quit; returns at once, and nothing is said, when it cannot be opened.
    void run_blocking();
    /// Ends the server, which may not have begun, and waits until it calls no hook any more and everything is closed.
    /// Not from a hook.
    void wait_quit();

    /// Sends to every client.
    /// \return true when every client that has room got it, or will; false when none has room or `len` exceeds
    ///         `queue_capacity`: then nobody gets anything
    bool write_to_all_connections(const unsigned char* data, unsigned int len);

  protected:
    ~TCP_server_buffered() override;

  private:
    int port_;
};
