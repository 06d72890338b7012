#include <platform/Util.h>

#include <cstddef>
#include <libdeflate.h>

unsigned int Util::crc32(unsigned int crc, const void* data, int len) {
    return len > 0 ? libdeflate_crc32(crc, data, static_cast<std::size_t>(len)) : crc;
}
