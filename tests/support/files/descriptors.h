#pragma once

#include <string>
#include <string_view>

/// Whether the number is a descriptor that this process has open.
bool is_open(int fd);
/// How many descriptors this process has open.
int open_descriptors();
/// The number that the next descriptor to be opened will have.
int next_descriptor();
/// How many threads this process has.
int threads();
/// Bytes that a pipe, socket or terminal has ready to be read.
int bytes_ready(int fd);
/// Makes reads and writes return instead of waiting.
void make_non_blocking(int fd);
/// Writes all bytes. A failed write fails the test.
void write_all(int fd, std::string_view bytes);
/// Reads `count` bytes. Ten seconds without one end that, and fail the test. \return the bytes received
std::string read_exactly(int fd, std::size_t count);

/// A pipe. Closes the ends that were not taken.
class Pipe {
  public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reading() const { return ends_[0]; }
    int writing() const { return ends_[1]; }
    /// \return the end, which the caller must close from now on
    int take_reading();
    int take_writing();
    void close_reading();
    void close_writing();

    /// Makes the pipe as small as possible. \return its capacity in bytes
    int shrink() const;
    /// Reads the bytes that are ready, without waiting.
    std::string drain() const;

  private:
    int ends_[2] = {-1, -1};
};

/// Two connected sockets, for both directions. Closes the ends that were not taken.
class Socket_pair {
  public:
    Socket_pair();
    ~Socket_pair();
    Socket_pair(const Socket_pair&) = delete;
    Socket_pair& operator=(const Socket_pair&) = delete;

    /// \return the end for the code under test, which the caller must close from now on
    int take_near();
    /// The test's end.
    int far() const { return ends_[1]; }
    void close_far();

  private:
    int ends_[2] = {-1, -1};
};
