#pragma once

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <functional>

namespace platform_detail {

/// Lets other threads make a loop call a handler. Several notifications before the handler runs count as one. Unlike
/// `asio::post` it allocates nothing.
class Wake_up {
  public:
    /// Throws std::system_error when the system has no descriptors left.
    Wake_up(asio::io_context& io, std::function<void()> handler);

    /// From any thread.
    void notify();

  private:
    void wait();

    asio::posix::stream_descriptor event_;
    std::function<void()> handler_;
};

} // namespace platform_detail
