#include "logging/Log_queue.h"

#include <algorithm>
#include <utility>

void Log_queue::resize(unsigned capacity) {
    if (ring_ && ring_->capacity() == capacity)
        return;
    auto resized = std::make_unique<Owned_ring<unsigned char>>(capacity + (ring_ ? ring_->size() : 0));
    while (ring_ && !ring_->empty()) {
        const auto piece = ring_->used_region();
        resized->append(piece.begin, piece.size);
        ring_->consume(piece.size);
    }
    ring_ = std::move(resized);
}

void Log_queue::open(std::shared_ptr<Log_file> file) {
    open_ = {std::move(file), 0};
}

void Log_queue::close() {
    if (open_.file)
        closed_.push_back(std::exchange(open_, {}));
}

std::shared_ptr<Log_file> Log_queue::release() {
    return std::exchange(open_.file, nullptr);
}

bool Log_queue::append(const unsigned char* bytes, unsigned count) {
    if (ring_->free_space() < count)
        return false;
    ring_->append(bytes, count);
    open_.bytes += count;
    return true;
}

Log_queue::Piece Log_queue::take(unsigned char* buffer, unsigned size) {
    Entry& entry = closed_.empty() ? open_ : closed_.front();
    Piece piece{entry.file, std::min(entry.bytes, size), false};
    ring_->peek(buffer, piece.count, 0);
    ring_->consume(piece.count);
    entry.bytes -= piece.count;
    if (!closed_.empty() && entry.bytes == 0) {
        piece.ends_file = true;
        closed_.pop_front();
    }
    return piece;
}
