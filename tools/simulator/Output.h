#pragma once

#include <glue/data_stream/Data_stream.h>

#include <vector>

namespace simulator {

/// What became of an attempt to send.
enum class Sent {
    all,         ///< every byte is on its way
    reader_gone, ///< nobody reads any more (EPIPE)
    failed       ///< anything else; `errno` says what
};

/// Writes all of `bytes`: in one write if the stream takes them so, otherwise on from where it stopped. Goes on after a
/// signal.
/// \param descriptor  what lies under the stream: waited for when it takes nothing just now (EAGAIN), which is a
/// failure
///                    without one
Sent send_all(Data_stream& stream, const std::vector<unsigned char>& bytes, int descriptor = -1);

} // namespace simulator
