#include <glue/NV_store/NV_item.h>
#include <glue/NV_store/NV_path.h>

#include <platform/NV_iterator.h>

#include <algorithm>
#include <iterator>

namespace NV_store {

NV_path::NV_path(int capacity) : ids_(room_), capacity_(std::clamp(capacity, 0, max_capacity)), room_{} {
    clear();
}

NV_path::NV_path(const NV_path& other) : ids_(room_), capacity_(other.capacity_) {
    *this = other;
}

NV_path& NV_path::operator=(const NV_path& other) {
    capacity_ = other.capacity_;
    head_ = other.head_;
    tail_ = other.tail_;
    std::copy(std::begin(other.room_), std::end(other.room_), room_);
    return *this;
}

/// Where the id at a position counted from the oldest one is.
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

bool NV_path::serialise(NV_iterator* it) const {
    const int count = fill();
    it->push_uint8(static_cast<unsigned char>(count), NV_iterator::little_endian);
    for (int i = 0; i < count; ++i)
        it->push_uint16(ids_[index(i)], NV_iterator::little_endian);
    return true;
}

bool NV_path::deserialise(NV_iterator* it) {
    unsigned char count = 0;
    it->pop_uint8(count, NV_iterator::little_endian);
    unsigned short id = 0;
    for (int i = 0; i < count && it->pop_uint16(id, NV_iterator::little_endian); ++i)
        push(id);
    return true;
}

} // namespace NV_store
