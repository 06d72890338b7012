#pragma once

#include <glue/vesk/Vesk_parser.h>

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

/// A packet that a parser delivered: a `Vesk_parser::Packet_kind` and the bytes.
struct Packet {
    int kind;
    std::string bytes;

    bool operator==(const Packet& other) const { return kind == other.kind && bytes == other.bytes; }
};

inline void PrintTo(const Packet& packet, std::ostream* out) {
    *out << packet.kind << testing::PrintToString(packet.bytes);
}

inline Packet frame(const std::string& bytes) {
    return {Vesk_parser::frame, bytes};
}
inline Packet reply(const std::string& bytes) {
    return {Vesk_parser::reply, bytes};
}
inline Packet noise(const std::string& bytes) {
    return {Vesk_parser::noise, bytes};
}
inline Packet acknowledgement(char byte) {
    return {Vesk_parser::acknowledgement, std::string(1, byte)};
}

/// Takes every packet that is complete. The buffer has exactly `size` bytes, so that sanitizers detect a write past it.
inline std::vector<Packet> packets_of(Vesk_parser& parser, int size = Vesk_parser::largest_packet) {
    std::vector<Packet> packets;
    std::vector<unsigned char> buffer(static_cast<std::size_t>(size));
    int len = 0;
    while (const int kind = parser.get_packet(buffer.data(), size, len)) {
        packets.push_back({kind, std::string(buffer.begin(), buffer.begin() + len)});
        if (len == 0)
            break;
    }
    return packets;
}
