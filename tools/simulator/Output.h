#pragma once

#include <glue/data_stream/Data_stream.h>

#include <vector>

namespace simulator {

/// The result of an attempt to send.
enum class Sent {
    all,         ///< every byte was sent
    reader_gone, ///< the reader closed its end (EPIPE)
    failed       ///< any other failure; `errno` has the reason
};

/// Writes all of `bytes`, in one write if the stream accepts that, else in several. Continues after a signal.
/// \param descriptor  the stream's descriptor, to wait for when it accepts nothing now (EAGAIN); without one, EAGAIN is
///                    a failure
Sent send_all(Data_stream& stream, const std::vector<unsigned char>& bytes, int descriptor = -1);

} // namespace simulator
