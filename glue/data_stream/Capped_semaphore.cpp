#include <glue/data_stream/Capped_semaphore.h>

void Capped_semaphore::release() {
    if (permits.available() >= most_permits)
        return;
    permits.release();
    if (capped && permits.available() > 1)
        permits.tryAcquire();
}

void Capped_semaphore::acquire() {
    permits.acquire();
}

bool Capped_semaphore::acquire(int ms) {
    return permits.tryAcquire(1, ms);
}
