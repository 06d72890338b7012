#pragma once

#include <glue/vesk/Vesk_parser.h>

#include <platform/Atime.h>

#include <cstdint>
#include <string_view>

/// Is notified of all that a monitor receives, and may end the run. Only the monitor's thread calls it.
class Link_watcher {
  public:
    virtual ~Link_watcher() = default;

    /// Bytes were received.
    /// \param arrived  the number of all bytes so far
    virtual void see_arrival(std::uint64_t arrived) = 0;
    /// The parser found a packet of any kind. Frames with a bad checksum are included.
    virtual void see_packet(int kind, unsigned char* packet, unsigned len) = 0;
    /// An NMEA sentence with a good checksum was found in the noise.
    /// \param sentence  without its line end
    virtual void see_sentence(std::string_view sentence) = 0;
    /// What the bytes that were parsed so far are part of.
    virtual void see_account(const Vesk_parser::Byte_counts& bytes) = 0;

    /// No more bytes will follow. The monitor runs on until `attend` ends it.
    virtual void see_end() = 0;

    /// Does the work that is due now.
    /// \return false to end the monitor
    virtual bool attend() = 0;
    /// When `attend` must be called again at the latest.
    virtual Atime due() const = 0;
};
