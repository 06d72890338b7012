#pragma once

#include <platform/TCP_server_base.h>

/// A TCP server that runs in a thread of the derived class:
///
///     void* My_server::thread(void* self) {
///         auto* server = static_cast<My_server*>(self);
///         if (server->open(5017))
///             server->run();                  // until another thread calls quit()
///         return nullptr;
///     }
///
/// Received bytes are delivered through `handle_incoming_data`. The derived class calls `quit()` and waits until
/// `is_finished()` before its members are destroyed.
class TCP_server : public TCP_server_base {
  public:
    /// Opens nothing.
    TCP_server();

    /// Binds and listens; once.
    /// \param port  0 lets the system choose one: see `local_port()`
    /// \return false when the port is in use, out of range or not permitted, without a message; or when the address to
    ///         listen on is invalid, which the debug printer reports
    [[nodiscard]] bool open(int port);

    /// Serves until `quit()` is called; returns at once when it was called before.
    void run();
    /// Asks `run()` to end, now or as soon as it is called. From any thread.
    void quit();
    /// False while `run()` serves; true again when it calls no more hooks and everything is closed.
    bool is_finished() const;

    /// Sends to every client, except one.
    /// \param except  the client that is left out; -1 for none
    /// \return true when the bytes were sent or queued for every client with enough free space; false when no client
    ///         has it or `len` exceeds `queue_capacity`: then nothing is sent
    bool write_to_all_connections(const unsigned char* data, unsigned int len, int except);

  protected:
    ~TCP_server() override;
};
