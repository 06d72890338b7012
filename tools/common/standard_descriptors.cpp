#include "standard_descriptors.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

void occupy_standard_descriptors() {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(standard, F_GETFD) < 0)
            open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY); // the lowest free number is `standard`
}
