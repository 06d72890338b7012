#pragma once

#include <glue/data_stream/Data_stream.h>

#include <platform/waiter.h>

#include <cstdint>

class Event_sender_data_stream;
class module_man;

/// Reads another stream with waiting, and writes to it: where the source only notifies of received bytes, a read from
/// this stream waits for the notification until its time-out.
///
///     Event_receiver_data_stream port(*factory_made, modules);
///     port.set_read_timeout(500);
///     port.printf("VER\r\n");
///     if (port.bytes_avail(16))       // waits up to half a second for sixteen bytes
///         read_answer(port);
///
/// While a read waits, this stream is the source's one rx waiter. On purpose it does not register the previous waiter
/// again: reading through this stream and waiting for the source's events elsewhere exclude each other.
///
/// A read lets the source fetch first. Where that waits too, as at an end of a virtual pair, a read may exceed its
/// time-out by the source's.
///
/// **Ownership.** The caller owns the source, which outlives this stream. **Threads.** One thread reads; at the same
/// time another may write if the source allows it.
class GLUE_EXPORT Event_receiver_data_stream : public Data_stream {
  public:
    static constexpr int default_timeout_ms = 10000;

    /// \param modules  gives this stream's own waiter its module id
    Event_receiver_data_stream(Event_sender_data_stream& read_from, module_man& modules);
    ~Event_receiver_data_stream() override;

    // Time-outs in milliseconds, `default_timeout_ms` at construction; 0 or less means not to wait. All return true.
    // The write time-out is only stored: the source's own one applies.

    int set_read_timeout(int ms) override;
    int set_default_read_timeout() override;
    int set_write_timeout(int ms) override;
    int set_default_write_timeout() override;

    using Data_stream::get_data;

    /// Moves `n` bytes from the source into this stream's ring, waiting for them until the read time-out; bytes that do
    /// not fit are lost. Bytes that the source has buffered are moved even after the time-out.
    /// \return whether all `n` were moved; those that were are in the ring. An `n` of 0 or less moves nothing: true for
    ///         0, false for less
    int get_data(int n) override;

    /// Writes to the source.
    /// \return the source's result
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool wait_for_event(Atime deadline);
    void move_byte();

    Event_sender_data_stream& source_;
    waiter_descriptor waiter_;
    std::int32_t read_timeout_ms_;
    std::int32_t write_timeout_ms_;
};
