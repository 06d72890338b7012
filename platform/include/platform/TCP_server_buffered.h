#pragma once

#include <platform/TCP_server_base.h>

/// A TCP server that appends received bytes directly to the registered ring and logs its traffic itself. One call
/// serves, one call ends it.
///
/// Received bytes are announced through `handle_direct_read`; without a registered ring they are delivered through
/// `handle_incoming_data`. With logging on, each received and each written piece is logged, too, with the number of the
/// client: to the debug printer and to `snoop_logger`. The derived class calls `wait_quit()` before its members are
/// destroyed.
class TCP_server_buffered : public TCP_server_base {
  public:
    /// \param port  for `run_blocking()`; 0 lets the system choose
    explicit TCP_server_buffered(int port);

    /// Opens the port and serves until `wait_quit()` is called; returns at once, without a message, when the port
    /// cannot be opened.
    void run_blocking();
    /// Ends the server, which may not have begun, and waits until it calls no more hooks and everything is closed. Not
    /// from a hook.
    void wait_quit();

    /// Sends to every client.
    /// \return true when the bytes were sent or queued for every client with enough free space; false when no client
    ///         has it or `len` exceeds `queue_capacity`: then nothing is sent
    bool write_to_all_connections(const unsigned char* data, unsigned int len);

  protected:
    ~TCP_server_buffered() override;

  private:
    int port_;
};
