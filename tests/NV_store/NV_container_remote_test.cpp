#include <glue/NV_store/NV_container.h>
#include <glue/NV_store/array_size.h>

#include <support/builders/Record_builder.h>
#include <support/settings/Settings_nodes.h>
#include <support/settings/Settings_tree.h>

namespace {

using namespace NV_store;
using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;

/// The bytes that a tree sends to a peer.
class Sent {
  public:
    explicit Sent(int capacity = 256)
        : storage_(static_cast<std::size_t>(capacity), 0), buffer_(storage_.data(), capacity) {}

    operator Send_buffer&() { return buffer_; }
    std::string bytes() const {
        return std::string(reinterpret_cast<const char*>(buffer_.data()), static_cast<std::size_t>(buffer_.size()));
    }

  private:
    std::vector<unsigned char> storage_;
    Send_buffer buffer_;
};

const std::string all_values = from_hex("05 00 00 00 " // speed
                                        "00 00 40 41 " // width
                                        "01 "          // beeper
                                        "01 00 00 00 " // mode
                                        "c8");         // lamp

/// Receives bytes into a tree. \return how many were left
template <typename Tree>
int receive(Tree& tree, const std::string& bytes, Data_item::Serial_ret& result, unsigned short counter = 0) {
    Receive_buffer buffer(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    result = tree.deserialise(buffer, counter);
    return buffer.left();
}

TEST(NV_container, peer_receives_only_the_values_in_order) {
    Settings_tree tree;
    Sent sent;
    unsigned short counter = 0;
    const Data_item::Serial_ret result = tree.serialise(sent, counter);
    EXPECT_FALSE(result.fail());
    EXPECT_EQ(sent.bytes(), all_values);
    EXPECT_EQ(static_cast<short>(counter), -7) << "every node was counted, containers included";
}

TEST(NV_container, peer_receives_the_values_after_the_skipped_items) {
    const std::size_t left_out[] = {0, 0, 4, 4, 8, 9, 13, 14};
    for (unsigned short passed_over = 0; passed_over <= 7; ++passed_over) {
        Settings_tree tree;
        Sent sent;
        unsigned short counter = passed_over;
        EXPECT_FALSE(tree.serialise(sent, counter).fail());
        EXPECT_EQ(sent.bytes(), all_values.substr(left_out[passed_over])) << passed_over;
    }
}

TEST(NV_container, values_from_a_peer_are_set_and_notified) {
    Settings_tree tree;
    Recorded_signals recorded;
    recorded.watch(tree.speed);
    recorded.watch(tree.lamp);
    Data_item::Serial_ret result;
    EXPECT_EQ(receive(tree, from_hex("06 00 00 00 00 00 80 3f 00 2c 01 00 00 c8 77"), result), 1);
    EXPECT_FALSE(result.fail());
    EXPECT_EQ(tree.speed.get(), 6);
    EXPECT_EQ(tree.guidance.width.get(), 1);
    EXPECT_FALSE(tree.guidance.beeper.get());
    EXPECT_EQ(tree.guidance.mode.value(), Settings_tree::Mode::off);
    EXPECT_EQ(recorded.names(), (std::vector<std::string>{"speed", "speed*"})) << "the lamp's value was equal";
}

TEST(NV_container, returns_the_item_that_failed_and_the_next_one) {
    Settings_tree tree;
    struct Case {
        int capacity;
        const Data_item* failed;
        const Data_item* next;
    };
    for (const Case& each : {Case{0, &tree.speed, &tree.guidance}, Case{7, &tree.guidance.width, &tree.guidance.beeper},
                             Case{8, &tree.guidance.beeper, &tree.guidance.mode},
                             Case{12, &tree.guidance.mode, &tree.lamp}, Case{13, &tree.lamp, nullptr}}) {
        Sent sent(each.capacity);
        unsigned short counter = 0;
        const Data_item::Serial_ret result = tree.serialise(sent, counter);
        EXPECT_TRUE(result.fail());
        EXPECT_EQ(result.failed_item(), each.failed) << each.capacity;
        EXPECT_EQ(result.next_item(), each.next) << each.capacity;
        EXPECT_EQ(sent.bytes(), all_values.substr(0, sent.bytes().size()));

        Data_item::Serial_ret received;
        Settings_tree other;
        receive(tree, all_values.substr(0, static_cast<std::size_t>(each.capacity)), received);
        EXPECT_EQ(received.failed_item(), each.failed) << each.capacity;
        EXPECT_EQ(received.next_item(), each.next) << each.capacity;
    }
}

TEST(NV_container, empty_one_sends_nothing_to_a_peer) {
    NV_struct empty(1, "empty");
    Sent sent(0);
    unsigned short counter = 0;
    EXPECT_FALSE(empty.serialise(sent, counter).fail());
    EXPECT_EQ(static_cast<short>(counter), -1);
}

// ---- The structure of a tree ----

std::string structure(NV_item& item, int depth) {
    Sent sent(1000);
    EXPECT_TRUE(item.serialise_structure(sent, depth));
    return sent.bytes();
}

class Structure : public testing::Test {
  protected:
    Structure() {
        unsigned short next = 10;
        for (NV_item* item = &tree; item; item = item->get_next_in_tree(&tree))
            item->set_data_number(next++);
    }
    Settings_tree tree;
    NV_struct empty{&tree, &tree, 9, "empty"};
    ~Structure() override { tree.remove_child(&empty); }
};

TEST_F(Structure, is_described_down_to_a_depth) {
    EXPECT_EQ(structure(tree, 0), "settings:0:10");
    EXPECT_EQ(structure(tree, 1), "settings:0:10{speed:9:11,guidance:1:12,lamp:4:16,empty:1:17}");
    const std::string all = "settings:0:10{speed:9:11,guidance:1:12{width:10:13,beeper:2:14,mode:6:15},lamp:4:16,"
                            "empty:1:17{}}";
    EXPECT_EQ(structure(tree, 2), "settings:0:10{speed:9:11,guidance:1:12{width:10:13,beeper:2:14,mode:6:15},"
                                  "lamp:4:16,empty:1:17{}}");
    for (const int depth : {3, 254, 255, 256, 1000})
        EXPECT_EQ(structure(tree, depth), all) << depth;
    EXPECT_EQ(structure(tree.speed, 5), "speed:9:11");
}

TEST_F(Structure, depth_of_255_or_more_is_never_lessened) {
    struct Depth_recorder : NV_struct {
        using NV_struct::NV_struct;
        bool serialise_structure(Send_buffer& buffer, int depth) override {
            last = depth;
            return NV_struct::serialise_structure(buffer, depth);
        }
        int last = -1;
    };
    Depth_recorder below(&tree, &tree, 20, "below");
    for (const auto& [depth, expected] : {std::pair(1, 0), std::pair(2, 1), std::pair(254, 253), std::pair(255, 255),
                                          std::pair(256, 256), std::pair(100000, 100000)}) {
        structure(tree, depth);
        EXPECT_EQ(below.last, expected);
    }
    tree.remove_child(&below);
}

TEST_F(Structure, fails_when_the_buffer_is_full) {
    const std::string all = structure(tree, 255);
    for (int capacity = 0; capacity < static_cast<int>(all.size()); ++capacity) {
        Sent sent(capacity);
        EXPECT_FALSE(tree.serialise_structure(sent, 255)) << capacity;
        EXPECT_EQ(sent.bytes(), all.substr(0, sent.bytes().size()));
    }
    Sent sent(static_cast<int>(all.size()));
    EXPECT_TRUE(tree.serialise_structure(sent, 255));
}

// ---- The number of elements before an array ----

TEST(array_size, is_one_byte) {
    Sent sent(1);
    EXPECT_TRUE(set_array_size(sent, 250));
    EXPECT_FALSE(set_array_size(sent, 251)) << "the buffer is full";
    EXPECT_EQ(sent.bytes(), "\xFA");
    const unsigned char bytes[] = {250};
    Receive_buffer received(bytes, 1);
    unsigned char size = 0;
    EXPECT_TRUE(get_array_size(received, size));
    EXPECT_EQ(size, 250);
    EXPECT_FALSE(get_array_size(received, size)) << "no byte is left";
    EXPECT_EQ(size, 250);
}

} // namespace
