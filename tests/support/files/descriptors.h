#pragma once

#include <string>
#include <string_view>

/// Whether the number is an open descriptor of this process.
bool is_open(int fd);
/// How many descriptors this process has open.
int open_descriptors();
/// The number that the next descriptor to be opened will have.
int next_descriptor();
/// How many threads this process has.
int threads();
/// Bytes that a pipe, socket or terminal has ready to be read.
int bytes_ready(int fd);
/// Makes writes and reads return instead of wait.
void make_non_blocking(int fd);
/// Writes every byte; a failure of the test when that fails.
void write_all(int fd, std::string_view bytes);
/// Reads until `count` bytes came; fewer, and a failure of the test, when they do not within ten seconds.
std::string read_exactly(int fd, std::size_t count);

/// A pipe. Closes the ends that nobody took over.
class Pipe {
  public:
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reading() const { return ends_[0]; }
    int writing() const { return ends_[1]; }
    /// The end; whoever asks closes it from now on.
    int take_reading();
    int take_writing();
    void close_reading();
    void close_writing();

    /// Makes the pipe as small as it can be. \return the bytes it holds
    int shrink() const;
    /// Reads what there is, without waiting.
    std::string drain() const;

  private:
    int ends_[2] = {-1, -1};
};

/// Two connected sockets that carry bytes both ways. Closes the ends that nobody took over.
class Socket_pair {
  public:
    Socket_pair();
    ~Socket_pair();
    Socket_pair(const Socket_pair&) = delete;
    Socket_pair& operator=(const Socket_pair&) = delete;

    /// The end that the code under test gets; whoever asks closes it from now on.
    int take_near();
    /// The test's end.
    int far() const { return ends_[1]; }
    void close_far();

  private:
    int ends_[2] = {-1, -1};
};
