#include <platform/stzncpy.h>

#include <cstring>

char* stzncpy(char* destination, const char* source, std::size_t size) {
    if (size == 0)
        return destination;
    const std::size_t length = strnlen(source, size - 1);
    std::memmove(destination, source, length);
    destination[length] = '\0';
    return destination;
}
