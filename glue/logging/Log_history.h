#pragma once

#include "logging/Owned_ring.h"

#include <cstdint>
#include <functional>
#include <memory>

/// The most recent stretch of a source's traffic: bytes in one ring, and in another how many of them belong to which
/// moment. Not synchronised.
class Log_history {
  public:
    static constexpr unsigned most_entries = 100;

    /// Forgets everything and begins anew.
    /// \param keeps_moments  false: nothing is kept at all
    /// \param bytes          how many are kept at most
    void resize(bool keeps_moments, unsigned bytes);

    bool keeps_moments() const { return entries_ != nullptr; }
    unsigned size() const { return data_ ? data_->size() : 0; }

    /// Drops what is older than `oldest`, makes room, and keeps the bytes.
    /// \param key  the moment they belong to
    /// \return false, with the bytes dropped, when they can never fit
    bool add(std::int64_t key, std::int64_t oldest, const unsigned char* bytes, unsigned count);

    /// Hands all bytes over, oldest first, in one piece or two, and forgets them.
    void take(const std::function<void(const unsigned char*, unsigned)>& use);

  private:
    struct Entry {
        std::int64_t key = 0;
        unsigned bytes = 0;
    };

    void drop_oldest();
    Entry& entry_for(std::int64_t key);

    std::unique_ptr<Owned_ring<unsigned char>> data_; ///< null: nothing is kept
    std::unique_ptr<Owned_ring<Entry>> entries_;
    Entry* newest_ = nullptr; ///< null when there is none
};
