#include <glue/data_stream/Capped_semaphore.h>

void Capped_semaphore::release() {
    if (permits_.available() >= most_permits)
        return;
    permits_.release();
    if (capped_ && permits_.available() > 1)
        permits_.tryAcquire();
}

void Capped_semaphore::acquire() {
    permits_.acquire();
}

bool Capped_semaphore::acquire(int ms) {
    return permits_.tryAcquire(1, ms);
}
