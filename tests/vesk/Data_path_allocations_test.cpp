// After the objects have been constructed and used once, no operation on the data path allocates memory.

#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>
#include <glue/vesk/Vesk_printer.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Allocation_counter.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

/// Fetches from a text and counts the bytes written; allocates nothing.
class Frugal_stream : public Data_stream {
  public:
    void receive(std::string_view bytes) {
        rx_buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
    }

    using Data_stream::get_data;
    int get_data(int n) override {
        const std::string_view fetched = arriving.substr(0, static_cast<std::size_t>(std::max(n, 0)));
        receive(fetched);
        arriving.remove_prefix(fetched.size());
        return fetched.size() == static_cast<std::size_t>(n);
    }
    int _write(const unsigned char*, unsigned int len) override {
        written += len;
        return static_cast<int>(len);
    }

    std::string_view arriving;
    unsigned written = 0;
};

/// Every kind of packet: frames of each identifier that the printer prints and of an unknown one, replies, noise, bad
/// headers, refusals.
std::string traffic() {
    Random random;
    std::string bytes;
    for (const char* identifier : {"PG", "~~", "RD", "GT", "NT", "SG", "PS", "PV", "DP", "ST", "||", "SI", "NN",
                                   "SS", "TC", "GA", "NA", "EL", "AZ", "EC", "E1", "E2", "DL", "NP", "XY"}) {
        bytes += build_frame(identifier, random.bytes(50), Checksum::binary, random.one_in(2) ? "\r\n" : "\n");
        bytes += build_frame(">>", random.bytes(20) + "@", Checksum::text);
    }
    bytes += "RE00A%id% value\n" + std::string("ER005wrong\r\n") + "!noise\r\n" + "PG0X0\n" + "SI000\n" + "PG002lost\n";
    return bytes + build_frame("RD", "date");
}

/// Uses the traffic as an application does: parses, checks and prints it. \return the number of packets
unsigned use_packets(Vesk_parser& parser) {
    unsigned char packet[Vesk_parser::largest_packet];
    char line[500];
    unsigned packets = 0;
    int len = 0;
    while (const int kind = parser.get_packet(packet, sizeof packet, len)) {
        ++packets;
        Vesk_message message(packet, static_cast<unsigned>(len));
        const bool intact = message.check_checksum();
        EXPECT_TRUE(intact || !message.validate(GNSS_messages::Msg_PG::id));
        message.set_checksum(true);
        message.set_msg_len(message.get_msg_len());
        Vesk_printer(true).snprint(message, line, sizeof line);
        Vesk_printer(false).snprint(message, line, sizeof line);
        if (kind == Vesk_parser::reply) {
            Vesk_response response(packet, static_cast<unsigned>(len));
            response.check_response_string("value");
            unsigned text_len = 0;
            response.strip_identifier(text_len);
        }
    }
    return packets;
}

TEST(Data_path_allocations, counter_counts_every_kind_of_allocation) {
    const auto count_of = [](auto act) {
        const Allocation_counter allocations;
        act();
        return allocations.count();
    };
    static void* volatile kept; // prevents the compiler from removing the allocations
    EXPECT_EQ(count_of([] { kept = nullptr; }), 0U);
    EXPECT_EQ(count_of([] { delete static_cast<int*>(kept = new int); }), 1U);
    EXPECT_EQ(count_of([] { std::free(kept = std::malloc(10)); }), 1U);
    EXPECT_EQ(count_of([] { std::free(kept = std::calloc(10, 10)); }), 1U);
    EXPECT_GE(count_of([] { std::free(kept = std::realloc(kept = std::malloc(10), 100000)); }), 2U);
#ifndef __SANITIZE_THREAD__ // which does not report these
    EXPECT_EQ(count_of([] { std::free(kept = std::aligned_alloc(64, 64)); }), 1U);
#endif
    EXPECT_EQ(count_of([] { std::free(kept = strdup("the C library's own")); }), 1U);
}

TEST(Data_path_allocations, counter_counts_allocations_of_the_library) {
    Frugal_stream stream;
    unsigned allocated = 0;
    std::thread([&] { // the first write of a thread to a stream allocates
        const Allocation_counter allocations;
        stream.write_direct(nullptr, 0);
        allocated = allocations.count();
    })
        .join();
    EXPECT_GE(allocated, 1U);
}

TEST(Data_path_allocations, pushed_packets_need_none) {
    const std::string bytes = traffic();
    const Captured_descriptor output(STDOUT_FILENO), errors(STDERR_FILENO);
    Frugal_stream stream;
    Vesk_parser parser(&stream, false);
    unsigned packets[2] = {}, allocated[2] = {};
    for (int round = 0; round < 2; ++round) { // standard output allocates its buffer at its first use
        const Allocation_counter allocations;
        for (std::size_t offset = 0; offset < bytes.size(); offset += 33) {
            stream.receive(std::string_view(bytes).substr(offset, 33));
            packets[round] += use_packets(parser);
        }
        allocated[round] = allocations.count();
    }
    EXPECT_GT(packets[1], 50U);
    EXPECT_EQ(allocated[1], 0U);
}

TEST(Data_path_allocations, fetched_packets_need_none) {
    const std::string bytes = traffic();
    const Captured_descriptor output(STDOUT_FILENO), errors(STDERR_FILENO);
    Frugal_stream stream;
    Vesk_parser parser(&stream, false);
    unsigned packets[2] = {}, allocated[2] = {};
    for (int round = 0; round < 2; ++round) {
        stream.arriving = bytes;
        const Allocation_counter allocations;
        packets[round] = use_packets(parser);
        allocated[round] = allocations.count();
    }
    EXPECT_GT(packets[1], 50U);
    EXPECT_EQ(allocated[1], 0U);
}

TEST(Data_path_allocations, acknowledgements_need_none) {
    const Captured_descriptor errors(STDERR_FILENO);
    Frugal_stream stream;
    Vesk_parser parser(&stream, false);
    unsigned char packet[10];
    unsigned allocated[2] = {};
    for (unsigned& count : allocated) { // the debug printer allocates its line at its first use
        const Allocation_counter allocations;
        stream.receive("\x06");
        parser.get_packet(packet, sizeof packet);
        count = allocations.count();
    }
    EXPECT_EQ(allocated[1], 0U);
    EXPECT_EQ(errors.text(), "DTP Response unhandled\nDTP Response unhandled\n");
}

TEST(Data_path_allocations, reading_and_writing_need_none_after_the_first_write) {
    Frugal_stream stream, source;
    unsigned char bytes[64] = {};
    Vesk_message message(bytes, sizeof bytes);
    stream.write_direct(bytes, 1);

    const Allocation_counter allocations;
    stream.receive("\r\nline\r\nand more");
    EXPECT_EQ(stream.string_avail(), 4U);
    EXPECT_EQ(stream[2], 'n');
    EXPECT_TRUE(stream.get_data(bytes, 4, 0));
    EXPECT_TRUE(stream.bytes_avail(14));
    EXPECT_FALSE(stream.bytes_avail(15));
    stream.drop(6);
    stream.drop_all();
    EXPECT_EQ(stream.bytes_avail(), 0U);

    EXPECT_EQ(stream.__write(bytes, 10), 10);
    EXPECT_TRUE(stream.write(message, true));
    EXPECT_TRUE(stream.printf("%s %d %.10f\r\n", "text", 42, 48.8566));
    source.receive("bytes of another stream");
    EXPECT_EQ(stream.write(source), 23);
    EXPECT_TRUE(stream.set_description("a stream with a name longer than any that fits"));
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(Data_path_allocations, traffic_of_a_descriptor_needs_none_after_the_first_write) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Posix_data_stream stream(ends[0], ends[1]);
    stream.set_read_timeout(10000);
    stream.set_write_timeout(10000);
    Vesk_parser parser(&stream, false);
    const std::string frame = build_frame("PG", "position");
    const auto* const bytes = reinterpret_cast<const unsigned char*>(frame.data());
    const auto size = static_cast<unsigned>(frame.size());
    unsigned char packet[100];
    stream.write_direct(bytes, 0);

    const Allocation_counter allocations;
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(stream.__write(bytes, size), static_cast<int>(size));
        EXPECT_EQ(parser.get_packet(packet, sizeof packet), static_cast<int>(size));
    }
    EXPECT_EQ(allocations.count(), 0U);
}

} // namespace
