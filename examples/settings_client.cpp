// Shows all settings of a unit without knowing its tree, over any stream: settings_client SPECIFICATION, for example
// settings_client exec:settings_server
#include <glue/NV_store/array_size.h>
#include <glue/data_stream/Data_stream_factory.h>
#include <glue/data_stream/Event_receiver_data_stream.h>

#include <platform/Data_item.h>
#include <platform/module_man.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

using CDS::Remote::Receive_buffer;

/// \return the answer; empty when none was received within the stream's time limit
static std::vector<unsigned char> ask(Data_stream& stream, unsigned char request) {
    stream.write_direct(&request, 1);
    unsigned char head[2];
    std::uint16_t length = 0;
    if (!stream.get_data(head, sizeof head, 0) || !Receive_buffer(head, sizeof head).pop_UINT16(length))
        return {};
    std::vector<unsigned char> answer(length);
    if (!stream.get_data(answer.data(), length, sizeof head))
        return {};
    stream.drop(sizeof head + length);
    return answer;
}

/// Consumes the first of the remaining values and prints it.
template <typename T>
static std::function<bool(Receive_buffer&)> printer(int (Receive_buffer::*pop)(T&)) {
    return [pop](Receive_buffer& values) {
        T value{};
        return (values.*pop)(value) > 0 && std::cout << ' ' << +value;
    };
}

static const std::map<int, std::function<bool(Receive_buffer&)>> printers = {
    {DTS::Defs::type_bool, printer(&Receive_buffer::pop_BOOL)},
    {DTS::Defs::type_char, printer(&Receive_buffer::pop_UINT8)},
    {DTS::Defs::type_uint8, printer(&Receive_buffer::pop_UINT8)},
    {DTS::Defs::type_uint16, printer(&Receive_buffer::pop_UINT16)},
    {DTS::Defs::type_uint32, printer(&Receive_buffer::pop_UINT32)},
    {DTS::Defs::type_uint64, printer(&Receive_buffer::pop_UINT64)},
    {DTS::Defs::type_int8, printer(&Receive_buffer::pop_INT8)},
    {DTS::Defs::type_int16, printer(&Receive_buffer::pop_INT16)},
    {DTS::Defs::type_int32, printer(&Receive_buffer::pop_INT32)},
    {DTS::Defs::type_int64, printer(&Receive_buffer::pop_INT64)},
    {DTS::Defs::type_float, printer(&Receive_buffer::pop_FLOAT)},
    {DTS::Defs::type_double, printer(&Receive_buffer::pop_DOUBLE)}};

/// Prints an item, described as "name:type:number{item,item}", and moves past it in the text and in the values.
static bool print_item(const char*& text, Receive_buffer& values, const std::string& parent) {
    char name[60];
    unsigned type_byte = 0;
    int length = 0, dimension = 0, type = 0;
    if (std::sscanf(text, "%59[^:]:%u:%*u%n", name, &type_byte, &length) != 2)
        return false;
    text += length;
    if (*text == '{') {
        for (++text; *text != '}'; text += *text == ',')
            if (!print_item(text, values, parent + name + '/'))
                return false;
        ++text;
        return true;
    }
    Data_item::decode_type_byte(static_cast<unsigned char>(type_byte), dimension, type);
    unsigned char count = 1;
    if (!printers.count(type) || (dimension != DTS::Defs::single && !NV_store::get_array_size(values, count)))
        return false;
    std::cout << parent << name << ':';
    while (count > 0 && printers.at(type)(values))
        --count;
    std::cout << '\n';
    return count == 0;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: settings_client SPECIFICATION\n";
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN); // the stream reports that the unit is gone
    module_man modules;
    const auto channel = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
    if (!channel)
        return 1;
    Event_receiver_data_stream stream(*channel, modules); // waits for answers
    const std::vector<unsigned char> structure = ask(stream, 's'), values = ask(stream, 'v');
    const std::string description(structure.begin(), structure.end());
    const char* text = description.c_str();
    Receive_buffer buffer(values.data(), static_cast<int>(values.size()));
    const bool understood = print_item(text, buffer, "");
    if (!understood)
        std::cerr << "no answer, or an answer that is not valid\n";
    return understood ? 0 : 1;
}
