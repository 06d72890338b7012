// Copies standard input to standard output until it ends. Unlike `cat` it waits for input that is not there yet, so it
// serves where standard input is non-blocking.

#include <cerrno>
#include <poll.h>
#include <unistd.h>

int main() {
    char piece[4096];
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        poll(&input, 1, -1);
        const ssize_t came = read(STDIN_FILENO, piece, sizeof piece);
        if (came == 0)
            return 0;
        for (ssize_t gone = 0; gone < came;) {
            const ssize_t written = write(STDOUT_FILENO, piece + gone, static_cast<size_t>(came - gone));
            if (written < 0)
                return 1;
            gone += written;
        }
    }
}
