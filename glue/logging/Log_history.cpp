#include "logging/Log_history.h"

void Log_history::resize(bool keeps_moments, unsigned bytes) {
    data_ = bytes > 0 ? std::make_unique<Owned_ring<unsigned char>>(bytes) : nullptr;
    entries_ = keeps_moments ? std::make_unique<Owned_ring<Entry>>(most_entries) : nullptr;
    newest_ = nullptr;
}

void Log_history::drop_oldest() {
    data_->consume(entries_->at(0).bytes);
    entries_->consume(1);
    if (entries_->empty())
        newest_ = nullptr;
}

/// The newest entry if it has this key, else a new one.
Log_history::Entry& Log_history::entry_for(std::int64_t key) {
    if (newest_ && newest_->key == key)
        return *newest_;
    if (entries_->full())
        drop_oldest();
    newest_ = entries_->free_region().begin;
    *newest_ = Entry{key, 0};
    entries_->commit(1);
    return *newest_;
}

bool Log_history::add(std::int64_t key, std::int64_t oldest, const unsigned char* bytes, unsigned count) {
    if (!entries_ || !data_ || count > data_->capacity())
        return false;
    while (!entries_->empty() && entries_->at(0).key < oldest)
        drop_oldest();
    while (!entries_->empty() && data_->free_space() < count)
        drop_oldest();
    entry_for(key).bytes += count;
    data_->append(bytes, count);
    return true;
}

void Log_history::take(const std::function<void(const unsigned char*, unsigned)>& use) {
    while (data_ && !data_->empty()) {
        const auto piece = data_->used_region();
        use(piece.begin, piece.size);
        data_->consume(piece.size);
    }
    if (entries_)
        entries_->consume(entries_->size());
    newest_ = nullptr;
}
