#include <glue/data_stream/Debug_data_stream.h>

#include <platform/Debug.h>

Debug_data_stream::Debug_data_stream(bool at_once) : print_at_once_(at_once) {}

Debug_data_stream::~Debug_data_stream() = default;

int Debug_data_stream::get_data(int) {
    return false;
}

int Debug_data_stream::_write(const unsigned char* data, unsigned int len) {
    Debug::Print::printc(print_at_once_, data, len);
    return static_cast<int>(len);
}
