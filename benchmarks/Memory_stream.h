#pragma once

#include <glue/data_stream/Data_stream.h>

#include <algorithm>
#include <cstddef>

/// A stream whose bytes come from memory, as many at a time as its ring can take.
class Memory_stream : public Data_stream {
  public:
    /// The caller keeps the bytes alive.
    void read_from(const unsigned char* bytes, std::size_t count) {
        next_ = bytes;
        left_ = count;
    }

    using Data_stream::get_data;
    int get_data(int n) override {
        const auto count = static_cast<unsigned>(std::min<std::size_t>(left_, rx_buffer.free_space()));
        rx_buffer.append(next_, count);
        next_ += count;
        left_ -= count;
        return static_cast<int>(count) >= n;
    }

    int _write(const unsigned char*, unsigned int) override { return -1; }

  private:
    const unsigned char* next_ = nullptr;
    std::size_t left_ = 0;
};
