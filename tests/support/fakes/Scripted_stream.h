#pragma once

#include <glue/data_stream/Data_stream.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// A stream without a medium: the test decides what a fetch receives, and the written bytes are recorded.
class Scripted_stream : public Data_stream {
  public:
    /// Appends bytes directly to the ring, as a transport's own thread does.
    void receive(std::string_view bytes);
    /// Bytes for later fetches, as many as each requests; a fetch that finds too few receives those and fails.
    void will_arrive(std::string_view bytes) { arriving += bytes; }
    /// Guards the ring, as streams with their own thread do.
    void use_lock() { buffer_lock = &lock; }
    /// Empties the ring and moves its positions to `head`.
    void move_head_to(unsigned head);

    unsigned head() const { return rx_buffer.head(); }
    unsigned tail() const { return rx_buffer.tail(); }
    bool full() const { return rx_buffer.full(); }
    /// Everything buffered, oldest first.
    std::string buffered() const;

    using Data_stream::get_data;
    int get_data(int n) override;
    int _write(const unsigned char* data, unsigned int len) override;

    std::string arriving;
    std::vector<int> fetches;                                        ///< the requested size of each fetch
    std::function<int(int)> on_fetch;                                ///< replaces the script when set
    std::string written;                                             ///< everything that `_write` accepted
    std::vector<std::string> writes;                                 ///< the same, call by call
    std::function<int(const unsigned char*, unsigned int)> on_write; ///< decides what `_write` accepts and returns
    Mutex lock;
};

/// Bytes of a text, for the operations that take unsigned characters.
inline const unsigned char* bytes_of(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}
inline const unsigned char* bytes_of(const std::string& text) {
    return bytes_of(text.data());
}
