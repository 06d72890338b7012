// Copies standard input to standard output until end of input. Unlike `cat` it also waits for input when standard input
// is non-blocking.

#include <cerrno>
#include <poll.h>
#include <unistd.h>

int main() {
    char piece[4096];
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        poll(&input, 1, -1);
        const ssize_t received = read(STDIN_FILENO, piece, sizeof piece);
        if (received == 0)
            return 0;
        for (ssize_t sent = 0; sent < received;) {
            const ssize_t written = write(STDOUT_FILENO, piece + sent, static_cast<size_t>(received - sent));
            if (written < 0)
                return 1;
            sent += written;
        }
    }
}
