// Shows the messages that consist of blocks in a receiver's traffic on standard input. They have no fixed identifiers:
// the command line assigns them, for example show_blocks P1=PA Q1=S1 Q2=S2 < traffic
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/GNSS_block_messages.h>
#include <glue/vesk/Vesk_parser.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

using namespace GNSS_messages;

static void show(const char* name, const Msg_PA::block_t& block) {
    std::printf("  %s: %.9g %.9g %.9g, type %d\n", name, block.position[0], block.position[1], block.position[2],
                block.type);
}

static void show(const char* name, const Msg_S1::block_t& block) {
    std::printf("  %s: %u, %d %d %d %d\n", name, block.number, block.values[0], block.values[1], block.values[2],
                block.values[3]);
}

static void show(const char* name, const Msg_S2::block_t& block) {
    std::printf("  %s: code %d, %u, \"%s\", \"%s\"\n", name, block.code, block.number, block.text_a, block.text_b);
}

static void show_blocks(const Msg_PA& message) {
    Msg_PA::block_t block;
    if (message.get_main(block))
        show("main", block);
    if (message.get_fallback(block))
        show("fallback", block);
}

template <typename Chain> // of Msg_S1 or Msg_S2
static void show_blocks(const Chain& message) {
    typename Chain::block_t block;
    if (message.get_hp(block))
        show("hp", block);
    if (message.get_ts(block))
        show("ts", block);
    if (message.get_vbs(block))
        show("vbs", block);
}

/// A message that claims more blocks than its kind can have is damaged: its blocks must not be read.
template <typename Message, unsigned most_blocks>
static void show_message(const Vesk_message& frame) {
    const Message message(frame.get_ptr(), frame.get_size());
    if (message.get_num_blocks() > most_blocks)
        std::printf("  claims %d blocks\n", message.get_num_blocks());
    else
        show_blocks(message);
}

int main(int argc, char** argv) {
    using Show = void (*)(const Vesk_message&);
    const std::map<std::string, Show> kinds = {
        {"PA", show_message<Msg_PA, 2>}, {"S1", show_message<Msg_S1, 3>}, {"S2", show_message<Msg_S2, 3>}};
    std::map<std::string, std::string> wanted; // identifier to kind
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.size() != 5 || argument[2] != '=' || kinds.count(argument.substr(3)) == 0) {
            std::fputs("usage: show_blocks IDENTIFIER=PA|S1|S2 ...\n", stderr);
            return 1;
        }
        wanted[argument.substr(0, 2)] = argument.substr(3);
    }
    Posix_data_stream stream(0, -1);
    Vesk_parser parser(&stream, false);
    unsigned char packet[Vesk_parser::largest_packet];
    int len = 0;
    while (const int kind = parser.get_packet(packet, sizeof packet, len)) {
        const Vesk_message frame(packet, static_cast<unsigned>(len));
        if (kind != Vesk_parser::frame || !frame.check_checksum())
            continue;
        const auto found = wanted.find({static_cast<char>(packet[0]), static_cast<char>(packet[1])});
        if (found == wanted.end())
            continue;
        std::printf("%s\n", found->second.c_str());
        kinds.at(found->second)(frame);
    }
}
