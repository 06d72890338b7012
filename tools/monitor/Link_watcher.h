#pragma once

#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>

#include <cstdint>
#include <string_view>

/// Looks over a monitor's shoulder, and may tell it to end. Called by the monitor's thread alone.
class Link_watcher {
  public:
    virtual ~Link_watcher() = default;

    /// Bytes have arrived.
    /// \param arrived  all that have, so far
    virtual void see_arrival(std::uint64_t arrived) = 0;
    /// A packet was taken from the link: anything that the parser finds, frames with a wrong checksum too.
    virtual void see_packet(int kind, unsigned char* packet, unsigned len) = 0;
    /// An NMEA sentence with a good checksum was found in the noise.
    /// \param sentence  without its line end
    virtual void see_sentence(std::string_view sentence) = 0;
    /// Where the bytes went that were taken so far.
    virtual void see_account(const Vesk_parser::Byte_counts& bytes) = 0;

    /// Nothing more will come. The monitor goes on until `attend` tells it to end.
    virtual void see_end() = 0;

    /// Does what is due at this moment.
    /// \return false to end the monitor
    virtual bool attend() = 0;
    /// When `attend` wants to be called again at the latest.
    virtual Atime due() const = 0;
};
