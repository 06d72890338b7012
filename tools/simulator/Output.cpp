#include "Output.h"

#include <cerrno>
#include <poll.h>

namespace simulator {

namespace {

/// Waits until a failed write may succeed. \return false when it never will
bool try_again(int descriptor) {
    if (errno == EINTR)
        return true;
    if ((errno != EAGAIN && errno != EWOULDBLOCK) || descriptor < 0)
        return false;
    pollfd watched = {descriptor, POLLOUT, 0};
    return poll(&watched, 1, -1) > 0 || errno == EINTR;
}

} // namespace

Sent send_all(Data_stream& stream, const std::vector<unsigned char>& bytes, int descriptor) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        errno = 0;
        const int written = stream.__write(bytes.data() + sent, static_cast<unsigned>(bytes.size() - sent));
        if (written > 0)
            sent += static_cast<std::size_t>(written);
        else if (!try_again(descriptor))
            return errno == EPIPE ? Sent::reader_gone : Sent::failed;
    }
    return Sent::all;
}

} // namespace simulator
