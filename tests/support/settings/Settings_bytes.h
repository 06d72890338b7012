#pragma once

#include <glue/NV_store/NV_buffer_iterator.h>

#include <cstring>
#include <string>

/// An iterator over memory of its own, to write settings to or to read them from:
///
///     Settings_bytes it(NV_iterator::writing_all);
///     number.serialise(&it);
///     it.bytes()                                   // what was written
///     Settings_bytes stored(header + value);       // open for reading
///     number.deserialise(&stored);
///     stored.left()                                // what was not read
class Settings_bytes : public NV_store::NV_buffer_iterator {
  public:
    explicit Settings_bytes(modes_t mode, int capacity = 4096)
        : storage_(static_cast<std::size_t>(capacity), '\xEE'), readable_(0) {
        set_buffer(data(), capacity, 0);
        set_mode(mode);
    }
    explicit Settings_bytes(const std::string& stored) : storage_(stored), readable_(static_cast<int>(stored.size())) {
        set_buffer(data(), readable_, readable_);
        set_mode(reading);
    }

    std::string bytes() const { return storage_.substr(0, static_cast<std::size_t>(length())); }

    bool pop_bytes(unsigned char* bytes, int count) override {
        const bool there = NV_buffer_iterator::pop_bytes(bytes, count);
        readable_ -= there ? count : 0;
        return there;
    }
    /// Bytes that were there to be read and have not been.
    int left() const { return readable_; }

  private:
    unsigned char* data() { return reinterpret_cast<unsigned char*>(storage_.data()); }

    std::string storage_;
    int readable_;
};
