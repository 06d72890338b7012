// The receiver's messages: from bytes to frames to lines.
#include "Comparison.h"
#include "Memory_stream.h"

#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>
#include <glue/vesk/Vesk_printer.h>
#include <simulator/Simulated_receiver.h>

#include <cstring>

namespace {

using Bytes = std::vector<unsigned char>;

/// Ten seconds of a receiver's traffic.
const Bytes& traffic() {
    static const Bytes bytes = [] {
        Bytes all;
        simulator::Simulated_receiver receiver(simulator::Simulated_receiver::Options{});
        for (int epoch = 0; epoch < 100; ++epoch) {
            const Bytes& more = receiver.next_epoch();
            all.insert(all.end(), more.begin(), more.end());
        }
        return all;
    }();
    return bytes;
}

void parse(benchmark::State& state) {
    Memory_stream stream;
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    for ([[maybe_unused]] auto _ : state) {
        stream.read_from(traffic().data(), traffic().size());
        int len = 0;
        while (parser.get_packet(packet, sizeof packet, len))
            benchmark::DoNotOptimize(packet[len - 1]);
    }
    if (parser.get_byte_counts().noise > 0)
        state.SkipWithError("good traffic was taken for noise");
    state.SetBytesProcessed(static_cast<std::int64_t>(parser.get_byte_counts().total()));
}

/// The least that every parser does: each byte copied into a ring's storage and out of it, each line end found.
void copy_lines(benchmark::State& state) {
    unsigned char storage[4200], packet[4200];
    for ([[maybe_unused]] auto _ : state) {
        for (std::size_t taken = 0; taken < traffic().size();) {
            const std::size_t piece = std::min(sizeof storage, traffic().size() - taken);
            std::memcpy(storage, traffic().data() + taken, piece);
            for (unsigned char *line = storage, *const end = storage + piece; line < end;) {
                auto* const line_end =
                    static_cast<unsigned char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
                const auto size = static_cast<std::size_t>((line_end ? line_end + 1 : end) - line);
                std::memcpy(packet, line, size);
                benchmark::DoNotOptimize(packet[size - 1]);
                line += size;
            }
            taken += piece;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * traffic().size()));
}

constexpr int frame_size = 1000;

void sum(benchmark::State& state) {
    unsigned char bytes[frame_size] = {1, 2, 3};
    const Vesk_message message(bytes, sizeof bytes);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(message.compute_8bit_checksum(frame_size));
    }
    state.SetBytesProcessed(state.iterations() * frame_size);
}

void sum_byte_by_byte(benchmark::State& state) {
    unsigned char bytes[frame_size] = {1, 2, 3};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::ClobberMemory();
        unsigned value = 0;
        for (const unsigned char byte : bytes)
            value = ((value << 2 | value >> 6) & 0xFFU) ^ byte;
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(state.iterations() * frame_size);
}

/// The position of the first epoch, as a frame.
const Bytes& position_frame() {
    static const Bytes frame = [] {
        Memory_stream stream;
        stream.read_from(traffic().data(), traffic().size());
        Vesk_parser parser(&stream, false);
        unsigned char packet[Vesk_parser::largest_packet];
        int len = 0;
        while (parser.get_packet(packet, sizeof packet, len) &&
               !GNSS_messages::Msg_PG(packet, static_cast<unsigned>(len)).validate(GNSS_messages::Msg_PG::id))
            continue;
        return Bytes(packet, packet + len);
    }();
    return frame;
}

void print(benchmark::State& state) {
    Bytes frame = position_frame();
    const Vesk_message message(frame.data(), static_cast<unsigned>(frame.size()));
    const Vesk_printer printer(true);
    char line[256];
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(printer.snprint(message, line, sizeof line));
    state.SetItemsProcessed(state.iterations());
}

void print_numbers(benchmark::State& state) {
    Bytes frame = position_frame();
    const GNSS_messages::Msg_PG message(frame.data(), static_cast<unsigned>(frame.size()));
    double numbers[] = {message.get_lat_deg(), message.get_lon_deg(), message.get_hgt()};
    char line[256];
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(numbers);
        benchmark::DoNotOptimize(
            std::snprintf(line, sizeof line, "%.9f %.9f %.4f %.4f", numbers[0], numbers[1], numbers[2], numbers[0]));
    }
    state.SetItemsProcessed(state.iterations());
}

const Benchmarks messages{
    {"take messages out of a stream", parse, "copies the same bytes twice and finds the line ends", copy_lines,
     headroom* serial_line, "a receiver at 921,600 baud, a hundred times over"},
    {"sum a message's bytes", sum, "the definition, byte by byte", sum_byte_by_byte, headroom* serial_line,
     "a receiver at 921,600 baud, a hundred times over"},
    {"print a position as a line", print, "one snprintf of four numbers", print_numbers, headroom * 20 * 25,
     "25 messages, 20 times a second, a hundred times over"},
};

} // namespace
