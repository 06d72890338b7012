#pragma once

#include "Link_input.h"

#include "common/Stream_trace.h"

#include <glue/data_stream/Event_sender_data_stream.h>

#include <platform/waiter.h>

#include <memory>

/// A stream of the factory as the monitor's link. The stream notifies it of received bytes.
class Stream_input : public Data_stream, public Link_input {
  public:
    /// Owns `source`.
    /// \param traced  show its traffic on standard error
    explicit Stream_input(std::unique_ptr<Event_sender_data_stream> source, bool traced = false);
    ~Stream_input() override;

    /// Reports the end when the source is a child process that has ended and whose output was received. Other streams
    /// reconnect by themselves, so they never end.
    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) override;
    Data_stream& buffered_bytes() override { return *this; }

    using Data_stream::get_data;
    /// \return whether `n` is 0
    int get_data(int n) override;
    /// Writes to the source.
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool receive();

    waiter_descriptor waiter_;
    std::unique_ptr<Event_sender_data_stream> source_;
    Stream_trace trace_;
};
