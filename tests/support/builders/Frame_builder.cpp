#include <support/builders/Frame_builder.h>

#include <cstdio>

unsigned char frame_checksum(std::string_view bytes) {
    const auto rotate = [](unsigned value) { return (value << 2 | value >> 6) & 0xFFU; };
    if (bytes.empty())
        return 0;
    unsigned value = 0;
    for (const char byte : bytes)
        value = rotate(value) ^ static_cast<unsigned char>(byte);
    return static_cast<unsigned char>(rotate(value));
}

std::string build_frame(std::string_view identifier, std::string_view body, Checksum checksum,
                        std::string_view line_end) {
    char digits[16];
    const std::size_t checksum_size = checksum == Checksum::binary ? 1 : 2;
    std::snprintf(digits, sizeof digits, "%03zX", body.size() + checksum_size);

    std::string frame(identifier);
    frame += digits;
    frame += body;
    const unsigned char value = frame_checksum(frame);
    if (checksum == Checksum::binary) {
        frame += static_cast<char>(value);
    } else {
        std::snprintf(digits, sizeof digits, "%02X", value);
        frame += digits;
    }
    return frame.append(line_end);
}
