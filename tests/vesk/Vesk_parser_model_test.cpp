// The parser compared with a model: the same rules on a text, one byte at a time.

#include <glue/vesk/Vesk_message.h>
#include <glue/vesk/Vesk_parser.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Packets.h>
#include <support/builders/Random.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <string>

namespace {

struct Settings {
    bool echoed_lines = false;
    bool terminated = true;
    bool keep_on_error = false;
    bool refuse_x = false; ///< frames whose identifier begins with "X" are refused
};

class Model {
  public:
    explicit Model(const Settings& settings) : settings_(settings) {}

    std::string waiting; ///< received and not yet consumed

    Packet next(std::size_t size) {
        while (synchronised_) {
            while (after_frame_ && !waiting.empty())
                if (is_separator(waiting[0]))
                    waiting.erase(0, 1);
                else
                    after_frame_ = false;
            if (waiting == "\x06" || waiting == "\x15")
                return {Vesk_parser::acknowledgement, take(std::min<std::size_t>(1, size))};
            if (settings_.echoed_lines && waiting.size() > 1 && waiting[0] != '>' && waiting[1] != '>') {
                synchronised_ = false;
                break;
            }
            if (waiting.size() < 5)
                return nothing;
            if (waiting[0] == '\0') {
                waiting.erase(0, 1);
                continue;
            }
            if (!is_identifier(waiting[0]) || !is_identifier(waiting[1])) {
                synchronised_ = false;
                break;
            }
            const std::string digits = waiting.substr(2, 3);
            const bool is_length = std::all_of(digits.begin(), digits.end(),
                                               [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
            if (!is_length || (settings_.refuse_x && waiting[0] == 'X')) {
                if (!settings_.keep_on_error)
                    waiting.erase(0, 1);
                synchronised_ = false;
                break;
            }
            std::size_t F = 5 + std::stoul(digits, nullptr, 16);
            if (settings_.terminated)
                ++F;
            if (waiting.size() < F)
                return nothing;
            const std::string identifier = waiting.substr(0, 2);
            if (settings_.terminated && (identifier == "RE" || identifier == "ER")) {
                const std::size_t end = waiting[F - 1] == '\n' ? F - 1 : F;
                if (waiting.size() < end + 1)
                    return nothing;
                if (waiting[end] != '\n') {
                    waiting.erase(0, 1);
                    continue;
                }
                std::string text = take(std::min(end + 1, size));
                for (int i = 0; i < 2 && text.size() < size; ++i)
                    text += '\0';
                return reply(text);
            }
            if (settings_.terminated && waiting[F - 1] != '\n' && waiting[F - 1] != '\r') {
                waiting.erase(0, 1);
                continue;
            }
            std::string bytes = take(std::min(F, size));
            after_frame_ = true;
            while (!waiting.empty() && is_separator(waiting[0]))
                waiting.erase(0, 1);
            if (!settings_.terminated && bytes.size() < size)
                bytes += '\n';
            return frame(bytes);
        }
        std::size_t i = std::min<std::size_t>(waiting.find_first_of("\r\n"), 4189);
        if (i >= waiting.size())
            return nothing;
        synchronised_ = true;
        while (i <= 4198 && i + 1 < waiting.size() && (waiting[i + 1] == '\r' || waiting[i + 1] == '\n'))
            ++i;
        return noise(take(std::min(i + 1, size)));
    }

    const Packet nothing{Vesk_parser::nothing, ""};

  private:
    static bool is_separator(char c) { return c == '\0' || c == '\r' || c == '\n'; }
    static bool is_identifier(char c) { return c >= 0x30 && c <= 0x7E; }

    std::string take(std::size_t count) {
        after_frame_ = false;
        std::string bytes = waiting.substr(0, count);
        waiting.erase(0, count);
        return bytes;
    }

    const Settings settings_;
    bool synchronised_ = true;
    bool after_frame_ = false;
};

struct Refusing_checker : Vesk_parser::Checker {
    bool check(Data_stream&, unsigned short identifier, int) override { return (identifier & 0xFF) != 'X'; }
};

/// Bytes that reach most branches of the parser: whole packets, hostile headers, and single bytes with a meaning.
std::string hostile_bytes(Random& random) {
    static const char* const identifiers[] = {"PG", "RE", "ER", ">>", "P>", "XY", "~~", "/G", "G\x7F"};
    static const char* const ends[] = {"\n", "\r", "\r\n", "", "x"};
    static const char* const digits[] = {"000", "001", "FFF", "00a", "0x1", " 12", "-01", "FF", "1F0"};
    static const std::string special_bytes("\0\0\r\n\x06\x15>RE0\n", 11);
    const std::string identifier = identifiers[random.between(0, 8)];
    switch (random.between(0, 5)) {
    case 0:
        return std::string(1, special_bytes[random.between(0, 10)]);
    case 1:
        return identifier + digits[random.between(0, 8)] + random.bytes(random.between(0, 20));
    case 2:
        return random.bytes(random.one_in(40) ? 5000 : random.between(0, 30)) + ends[random.between(0, 4)];
    default:
        return build_frame(identifier, random.bytes(random.between(0, 40)),
                           random.one_in(2) ? Checksum::binary : Checksum::text, ends[random.between(0, 4)]);
    }
}

TEST(Vesk_parser_model, parser_and_model_agree) {
    const Captured_debug debug;
    Random random;
    for (int round = 0; round < 1500; ++round) {
        const Settings settings{random.one_in(4), !random.one_in(4), random.one_in(2), random.one_in(2)};
        Model model(settings);
        Scripted_stream stream;
        Refusing_checker checker;
        Vesk_parser parser(&stream, false);
        parser.set_parse_mode(settings.echoed_lines ? Vesk_parser::parse_echoed_lines : Vesk_parser::parse_messages);
        parser.set_terminated(settings.terminated);
        parser.set_keep_on_error(settings.keep_on_error);
        parser.set_checker(settings.refuse_x ? &checker : nullptr);
        const unsigned largest = random.one_in(3) ? random.between(1, 40) : Vesk_parser::largest_packet;

        std::string bytes;
        while (bytes.size() < 600)
            bytes += hostile_bytes(random);
        for (std::size_t done = 0; done < bytes.size();) {
            const std::size_t free_space = Data_stream::rx_capacity - stream.bytes_avail();
            ASSERT_GT(free_space, 0U) << "a full ring without a packet";
            const std::string piece = bytes.substr(done, std::min<std::size_t>(free_space, random.between(1, 100)));
            done += piece.size();
            stream.receive(piece);
            model.waiting += piece;
            for (bool more = true; more;) {
                const std::size_t size = random.one_in(2) ? largest : random.between(1, largest);
                std::vector<unsigned char> buffer(size);
                int len = 0;
                const int kind = parser.get_packet(buffer.data(), static_cast<int>(size), len);
                const Packet found{kind, std::string(buffer.begin(), buffer.begin() + len)};
                ASSERT_EQ(found, model.next(size));
                ASSERT_EQ(stream.buffered(), model.waiting);
                more = kind != Vesk_parser::nothing;
            }
        }
    }
}

} // namespace
