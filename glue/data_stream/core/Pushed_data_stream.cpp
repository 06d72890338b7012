#include <glue/data_stream/Pushed_data_stream.h>

Pushed_data_stream::Pushed_data_stream(module_man* modules, Mutex& ring_lock) : Event_sender_data_stream(modules) {
    buffer_lock = &ring_lock;
}

Pushed_data_stream::~Pushed_data_stream() = default;

void Pushed_data_stream::lock() {
    buffer_lock->lock();
}

void Pushed_data_stream::unlock() {
    buffer_lock->unlock();
}
