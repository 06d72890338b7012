#include <glue/NV_store/NV_path.h>

#include <glue/NV_store/NV_item.h>
#include <glue/NV_store/NV_record.h>

#include <algorithm>
#include <iterator>

namespace NV_store {

NV_path::NV_path(int capacity) : ids_(storage_), capacity_(std::clamp(capacity, 0, max_capacity)), storage_{} {
    clear();
}

NV_path::NV_path(const NV_path& other) : ids_(storage_), capacity_(other.capacity_) {
    *this = other;
}

NV_path& NV_path::operator=(const NV_path& other) {
    if (this == &other)
        return *this;
    capacity_ = other.capacity_;
    head_ = other.head_;
    tail_ = other.tail_;
    std::copy(std::begin(other.storage_), std::end(other.storage_), storage_);
    return *this;
}

/// The index of an id; positions count from the oldest one.
int NV_path::index(int position) const {
    return (head_ + position) % capacity_;
}

void NV_path::clear() {
    head_ = 0;
    tail_ = capacity_ == 0 ? full : 0;
}

int NV_path::fill() const {
    return tail_ == full ? capacity_ : (tail_ - head_ + capacity_) % capacity_;
}

bool NV_path::push(unsigned short id) {
    if (tail_ == full)
        return false;
    ids_[tail_] = id;
    tail_ = (tail_ + 1) % capacity_;
    if (tail_ == head_)
        tail_ = full;
    return true;
}

bool NV_path::push(const NV_item* item) {
    return push(item->get_id());
}

bool NV_path::last(unsigned short& id) const {
    const int count = fill();
    if (count == 0)
        return false;
    id = ids_[index(count - 1)];
    return true;
}

bool NV_path::pop(unsigned short& id) {
    if (!last(id))
        return false;
    tail_ = index(fill() - 1);
    return true;
}

bool NV_path::write(NV_iterator* it) const {
    const int count = fill();
    bool written = it->push_uint8(static_cast<unsigned char>(count), record_options);
    for (int i = 0; i < count && written; ++i)
        written = it->push_uint16(ids_[index(i)], record_options);
    return written;
}

bool NV_path::read(NV_iterator* it) {
    unsigned char count = 0;
    bool complete = it->pop_uint8(count, record_options);
    unsigned short id = 0;
    for (int i = 0; i < count && complete; ++i) {
        complete = it->pop_uint16(id, record_options);
        if (complete)
            push(id);
    }
    return complete;
}

/// On purpose true also when a byte could not be written: callers rely on it.
bool NV_path::serialise(NV_iterator* it) const {
    static_cast<void>(write(it));
    return true;
}

/// On purpose true, too.
bool NV_path::deserialise(NV_iterator* it) {
    static_cast<void>(read(it));
    return true;
}

} // namespace NV_store
