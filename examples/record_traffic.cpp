// Records the traffic of a receiver, from the minute before the first damaged frame:
// receiver_simulator --corrupt 0.001 | record_traffic /data/logs
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/logging/logging_source.h>
#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <cstdio>

namespace {

constexpr auto source = logging_source_receiver;

/// Standard input. Logs every byte that it receives.
class Logged_input : public Posix_data_stream {
  public:
    Logged_input() : Posix_data_stream(0, -1) {}

    using Posix_data_stream::get_data;
    int get_data(int n) override {
        const unsigned before = rx_buffer.size();
        const int result = Posix_data_stream::get_data(n);
        unsigned char received[rx_capacity];
        const unsigned count = rx_buffer.peek(received, rx_capacity, before);
        logging_source_write(source, received, received + count);
        return result;
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: record_traffic DIRECTORY\n");
        return 1;
    }
    constexpr unsigned span_ms = 60000;
    constexpr unsigned memory = 4 << 20;
    logging_source_use_time_of_writing(source, true, span_ms / 90);
    logging_source_enable(source, true); // not configured, so no file: keeps history only
    logging_source_configure(source, false, span_ms, memory, argv[1], "receiver", "raw", false);

    Logged_input stream;
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0;
    bool recording = false;
    while (const int kind = parser.get_packet(packet, sizeof packet, len)) {
        if (recording || kind != Vesk_parser::frame ||
            Vesk_message(packet, static_cast<unsigned>(len)).check_checksum())
            continue;
        logging_source_enable(source, true); // opens a file, which begins with the history
        recording = true;
    }
    logging_source_flush(source, false);
    const logging_source_status status = logging_source_get_status(source);
    if (recording)
        std::printf("%s: %llu bytes, %llu dropped\n", status.path, static_cast<unsigned long long>(status.file_bytes),
                    static_cast<unsigned long long>(status.dropped));
}
