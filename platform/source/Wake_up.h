#pragma once

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <functional>

namespace platform_detail {

/// Makes a loop call a handler soon, on behalf of other threads; what is asked for several times before the handler
/// runs is done once. Unlike `asio::post` it allocates nothing.
class Wake_up {
  public:
    /// Throws std::system_error when the system has no descriptors left.
    Wake_up(asio::io_context& io, std::function<void()> handler);

    /// From any thread.
    void call();

  private:
    void wait();

    asio::posix::stream_descriptor event_;
    std::function<void()> handler_;
};

} // namespace platform_detail
