#pragma once

#include "logging/Owned_ring.h"

#include <cstdint>
#include <functional>
#include <memory>

/// The most recent traffic of a source: the bytes in one ring, and in another how many of them belong to which moment.
/// Not synchronised.
class Log_history {
  public:
    static constexpr unsigned most_entries = 100;

    /// Drops everything and sets the capacity.
    /// \param keeps_moments  false: nothing is kept
    /// \param bytes          the most that are kept
    void resize(bool keeps_moments, unsigned bytes);

    bool keeps_moments() const { return entries_ != nullptr; }
    unsigned size() const { return data_ ? data_->size() : 0; }

    /// Drops bytes older than `oldest`, then as many as the new bytes need, and appends these.
    /// \param key  the moment that the new bytes belong to
    /// \return false, with nothing appended, when they can never fit
    bool add(std::int64_t key, std::int64_t oldest, const unsigned char* bytes, unsigned count);

    /// Passes all bytes to `use`, oldest first, in one piece or two, and drops them.
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
