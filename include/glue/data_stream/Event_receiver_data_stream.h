#pragma once

#include <glue/data_stream/Data_stream.h>

#include <platform/waiter.h>

#include <cstdint>

class Event_sender_data_stream;
class module_man;

/// Reads and writes another stream as if that one could be waited on: where the source only announces what arrives, a
/// read from this stream waits for the announcement until its time-out.
///
///     Event_receiver_data_stream port(*factory_made, modules);
///     port.set_read_timeout(500);
///     port.printf("VER\r\n");
///     if (port.bytes_avail(16))       // waits up to half a second for sixteen bytes
///         take_the_answer_from(port);
///
/// While a read waits, this stream is the source's one rx waiter. On purpose it does not put back who was registered
/// before: reading through this stream and waiting for the source's events elsewhere exclude each other.
///
/// The source's own fetch comes first. Where that waits too, as at an end of a virtual pair, a read may outlast its
/// time-out by the source's.
///
/// **Ownership.** The source stays the caller's and outlives this stream. **Threads.** One thread reads, at the same
/// time another may write as far as the source allows it.
class GLUE_EXPORT Event_receiver_data_stream : public Data_stream {
  public:
    static constexpr int default_timeout_ms = 10000;

    /// \param modules  gives this stream's own waiter its module id
    Event_receiver_data_stream(Event_sender_data_stream& read_from, module_man& modules);
    ~Event_receiver_data_stream() override;

    // Time-outs in milliseconds, `default_timeout_ms` at construction; 0 or less means not to wait. All return true.
    // The write time-out is kept and nothing more: the source's own one rules.

    int set_read_timeout(int ms) override;
    int set_default_read_timeout() override;
    int set_write_timeout(int ms) override;
    int set_default_write_timeout() override;

    using Data_stream::get_data;

    /// Moves `n` bytes from the source into this stream's ring, waiting for them until the read time-out; bytes
    /// that the ring has no room for are lost. Bytes that are there already are taken even after the time-out.
    /// \return true when all `n` came; false, with those that came in the ring, when not. An `n` of 0 or less moves
    ///         nothing: true for 0, false for less
    int get_data(int n) override;

    /// Writes to the source.
    /// \return what the source returned
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool wait_for_event(Atime deadline);
    void take_byte();

    Event_sender_data_stream& source_;
    waiter_descriptor waiter_;
    std::int32_t read_timeout_ms_;
    std::int32_t write_timeout_ms_;
};
