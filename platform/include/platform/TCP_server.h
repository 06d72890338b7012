#pragma once

#include <platform/TCP_server_base.h>

/// A TCP server whose thread belongs to the derived class:
///
///     void* My_server::thread(void* self) {
///         auto* server = static_cast<My_server*>(self);
///         if (server->open(5017))
///             server->run();                  // until somebody calls quit()
///         return nullptr;
///     }
///
/// Received bytes come through `handle_incoming_data`. Before the derived class's members die, it calls `quit()` and
/// waits until `is_finished()`.
class TCP_server : public TCP_server_base {
  public:
    /// Nothing is open.
    TCP_server();

    /// Binds and listens; once.
    /// \param port  0 lets the system choose one: see `local_port()`
    /// \return false when the port is taken, out of range or must not be used: nothing is said about that; or when the
    ///         address to listen on is none: the debug printer tells
    bool open(int port);

    /// Serves until `quit()` is called; at once done when it was called already.
    void run();
    /// Asks `run()` to end, now or as soon as it is called. From any thread.
    void quit();
    /// False from when `run()` begins to serve until it calls no hook any more and everything is closed.
    bool is_finished() const;

    /// Sends to every client but one.
    /// \param except  the client that gets nothing; -1 for none
    /// \return true when every client that has room got it, or will; false when none has room or `len` exceeds
    ///         `queue_capacity`: then nobody gets anything
    bool write_to_all_connections(const unsigned char* data, unsigned int len, int except);

  protected:
    ~TCP_server() override;
};
