#pragma once

#include <glue/data_stream/Pushed_data_stream.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// A source like a transport with its own thread: the test, or a thread of the test, pushes bytes; a fetch runs
/// `on_fetch`, which receives nothing by default. The written bytes are recorded.
class Scripted_event_sender : public Pushed_data_stream {
  public:
    explicit Scripted_event_sender(module_man* modules = nullptr);
    ~Scripted_event_sender() override;

    /// Receives bytes and announces them. \return how many fitted
    unsigned push(std::string_view bytes);
    /// Receives bytes without an announcement.
    unsigned receive(std::string_view bytes);
    /// The same for `on_fetch`, which is called under the lock.
    unsigned receive_locked(std::string_view bytes);
    /// The bytes buffered.
    std::string buffered();

    void init(module_man& modules) override;
    bool has_ended() override { return ended; }
    using Data_stream::get_data;
    int get_data(int n) override;
    int _write(const unsigned char* data, unsigned int len) override;

    std::atomic<bool> ended{false};                                  ///< what `has_ended` returns
    int inits = 0;                                                   ///< calls of `init` after construction
    std::string written;                                             ///< everything that `_write` accepted
    std::vector<std::string> writes;                                 ///< the same, call by call
    std::function<int(const unsigned char*, unsigned int)> on_write; ///< decides what `_write` accepts and returns
    std::function<void()> on_fetch;   ///< called, under the lock, when a reader needs more than is buffered
    std::function<void()> on_destroy; ///< called by the destructor

  private:
    Mutex mutex_;
};
