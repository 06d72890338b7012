#pragma once

#include <glue/NV_store/NV_buffer_iterator.h>

#include <cstring>
#include <string>

/// An iterator over its own memory, for writing or reading settings:
///
///     Settings_bytes it(NV_iterator::writing_all);
///     EXPECT_TRUE(number.serialise(&it));
///     it.bytes()                                   // the written bytes
///     Settings_bytes stored(header + value);       // open for reading
///     number.deserialise(&stored);
///     stored.left()                                // the bytes not read
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
    /// The bytes that have not been read.
    int left() const { return readable_; }

  private:
    unsigned char* data() { return reinterpret_cast<unsigned char*>(storage_.data()); }

    std::string storage_;
    int readable_;
};
