#pragma once

namespace Util {

/// Updates a CRC-32 with `len` bytes: the common reflected polynomial 0xEDB88320, the register inverted before and
/// after, the values of zlib's `crc32()`. "123456789" from 0 gives 0xCBF43926.
///
/// The result for one piece is the `crc` for the next; the last result does not depend on how the bytes were cut into
/// pieces. Callable from any thread.
/// \return the updated CRC; `crc` itself when `len` is 0 or less
unsigned int crc32(unsigned int crc, const void* data, int len);

} // namespace Util
