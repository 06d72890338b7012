#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The test's end of a TCP connection on 127.0.0.1. Closes its descriptor. Servers under test listen on 127.0.0.1 only
/// wherever this is used.
class TCP_socket {
  public:
    /// Connects; a failure of the test when nobody listens. A `receive_buffer` of other than 0 bounds what the system
    /// takes in while nobody reads.
    static TCP_socket connected_to(int port, int receive_buffer = 0);
    /// Whether a connection to an address of this machine is accepted.
    static bool can_connect(const char* address, int port);

    explicit TCP_socket(int fd = -1) : fd_(fd) {}
    TCP_socket(TCP_socket&& other) noexcept;
    TCP_socket& operator=(TCP_socket&& other) noexcept;
    ~TCP_socket() { close(); }

    int fd() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }
    /// The port of this end.
    int port() const;

    void send(std::string_view bytes) const;
    std::string receive(std::size_t count) const;
    /// Reads until the other side ends the connection; a failure of the test when it does not within twenty seconds.
    std::string receive_all() const;
    void end_sending() const;
    void close();
    /// Ends the connection without ceremony, as a peer that loses power and comes back does.
    void reset();

  private:
    int fd_;
};

/// Gives a socket a port of 127.0.0.1, which others may have too as long as nobody listens.
void bind_to(int fd, int port);

/// A port of 127.0.0.1 that nobody else gets while this lives, whether it listens or not.
class TCP_port {
  public:
    TCP_port();
    ~TCP_port();
    TCP_port(const TCP_port&) = delete;
    TCP_port& operator=(const TCP_port&) = delete;

    int number() const { return number_; }
    void listen();
    void stop_listening();
    /// The next client; not open, and a failure of the test, when none comes within twenty seconds.
    TCP_socket accept() const;

  private:
    int number_;
    int reservation_; ///< bound, never listening
    int listener_ = -1;
};

/// A listener of 127.0.0.1 whose queue is full: who connects hangs until `accept` has made room.
class Full_listener {
  public:
    Full_listener();
    ~Full_listener();
    Full_listener(const Full_listener&) = delete;
    Full_listener& operator=(const Full_listener&) = delete;

    int port() const { return port_; }
    /// Takes the connection that fills the queue.
    TCP_socket accept() const;

  private:
    int listener_;
    int port_;
    TCP_socket filler_;
};

/// Whether a descriptor is a socket.
bool is_socket(int fd);
/// The sockets of this process whose local port it is.
std::vector<int> sockets_at(int port);
