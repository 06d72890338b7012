// Shows the messages in bytes that it reads as hexadecimal digits from standard input, also those within AIM frames:
// receiver_simulator --epochs 2 | xxd -p | decode_hex
#include <glue/data_stream/AIM_message.h>
#include <glue/data_stream/Loopback_data_stream.h>
#include <glue/vesk/Vesk_parser.h>
#include <glue/vesk/Vesk_printer.h>

#include <cstdio>
#include <cstring>
#include <memory>

/// Decodes one sequence of bytes, received in pieces: the parser reads the bytes that were written to the loopback.
class Decoder {
  public:
    /// \param indent  blanks before each line
    explicit Decoder(int indent) : indent_(indent) { parser_.set_keep_on_error(true); }

    void take(const unsigned char* data, unsigned count) {
        while (count > 0) {
            const auto taken = static_cast<unsigned>(bytes_.__write(data, count)); // as many as fit
            data += taken;
            count -= taken;
            show_messages();
        }
    }

    void finish() {
        if (carried_)
            carried_->finish();
        if (const unsigned rest = bytes_.bytes_avail())
            std::printf("%*s%u bytes left over\n", indent_, "", rest);
    }

  private:
    void show_messages() {
        unsigned char packet[Vesk_parser::largest_packet];
        int len = 0;
        while (const int kind = parser_.get_packet(packet, sizeof packet, len)) {
            Vesk_message message(packet, static_cast<unsigned>(len));
            std::printf("%*s", indent_, "");
            if (kind == Vesk_parser::noise)
                std::printf("%d bytes of noise\n", len);
            else if (kind == Vesk_parser::acknowledgement)
                std::puts(packet[0] == Vesk_parser::accepted_byte ? "accepted" : "refused");
            else if (kind == Vesk_parser::frame && !message.check_checksum())
                std::puts("a frame whose checksum is wrong");
            else if (message.get_msg_id() == AIM_message::identifier)
                show_frame(AIM_message(message));
            else
                print(message);
        }
    }

    void show_frame(const AIM_message& frame) {
        std::printf("channel %02X carries %u bytes\n", frame.get_chan(), frame.get_len());
        if (!carried_)
            carried_ = std::make_unique<Decoder>(indent_ + 2);
        carried_->take(frame.get_data(), frame.get_len());
    }

    static void print(const Vesk_message& message) {
        char line[3 * Vesk_parser::largest_packet] = "";
        Vesk_printer(true).snprint(message, line, sizeof line);
        std::printf("%.*s\n", static_cast<int>(std::strcspn(line, "\r\n")), line); // a reply includes its line end
    }

    int indent_;
    Loopback_data_stream bytes_;
    Vesk_parser parser_{&bytes_, false};
    std::unique_ptr<Decoder> carried_; ///< for the payload of AIM frames
};

int main() {
    Decoder decoder(0);
    for (unsigned byte = 0; std::scanf("%2x", &byte) == 1;) {
        const auto one = static_cast<unsigned char>(byte);
        decoder.take(&one, 1);
    }
    decoder.finish();
    return std::feof(stdin) != 0 ? 0 : 1; // any other character ends the input, too
}
