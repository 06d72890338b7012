#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The test's end of a TCP connection on 127.0.0.1. Closes its descriptor. Servers under test listen on 127.0.0.1 only
/// wherever this is used.
class TCP_socket {
  public:
    /// Connects; a failure of the test when no server listens. A `receive_buffer` other than 0 limits what the system
    /// receives while the test does not read.
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
    /// Reads until the peer ends the connection; a failure of the test when it does not within 20 seconds.
    std::string receive_all() const;
    void end_sending() const;
    void close();
    /// Ends the connection with a reset, as a peer does that loses power and starts again.
    void reset();

  private:
    int fd_;
};

/// Binds a socket to a port of 127.0.0.1. Other sockets may be bound to it, too, while none listens.
void bind_to(int fd, int port);

/// A port of 127.0.0.1, reserved while this object exists, whether it listens or not.
class TCP_port {
  public:
    TCP_port();
    ~TCP_port();
    TCP_port(const TCP_port&) = delete;
    TCP_port& operator=(const TCP_port&) = delete;

    int number() const { return number_; }
    void listen();
    void stop_listening();
    /// The next client; not open, and a failure of the test, when none connects within 20 seconds.
    TCP_socket accept() const;

  private:
    int number_;
    int reservation_; ///< bound, never listening
    int listener_ = -1;
};

/// A listener of 127.0.0.1 whose queue is full: a client that connects hangs until `accept` has freed a place.
class Full_listener {
  public:
    Full_listener();
    ~Full_listener();
    Full_listener(const Full_listener&) = delete;
    Full_listener& operator=(const Full_listener&) = delete;

    int port() const { return port_; }
    /// Accepts the connection that fills the queue.
    TCP_socket accept() const;

  private:
    int listener_;
    int port_;
    TCP_socket filler_;
};

/// Whether a descriptor is a socket.
bool is_socket(int fd);
/// The sockets of this process with this local port.
std::vector<int> sockets_at(int port);
