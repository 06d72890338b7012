#pragma once

#include <platform/Cbuf.h>

#include <memory>

/// A ring with storage of its own.
template <typename T>
class Owned_ring : private std::unique_ptr<T[]>, public Cbuf_templ<T> {
  public:
    /// \param capacity  at least 1
    explicit Owned_ring(unsigned capacity)
        : std::unique_ptr<T[]>(std::make_unique<T[]>(capacity)), Cbuf_templ<T>(std::unique_ptr<T[]>::get(), capacity) {}
};
