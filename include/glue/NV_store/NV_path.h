#pragma once

#include <glue/export.h>

namespace NV_store {

class NV_item;
class NV_iterator;

/// The way from a node of a settings tree up to the node at which a search began: their NV ids, the node's own first.
///
/// A ring of 16-bit ids with a fixed capacity. Not synchronised.
class GLUE_EXPORT NV_path {
  public:
    static constexpr int max_capacity = 10;

    /// An empty path. A capacity below 0 or above `max_capacity` is brought into that range.
    explicit NV_path(int capacity = max_capacity);
    NV_path(const NV_path& other);
    NV_path& operator=(const NV_path& other);

    /// Adds an id behind the others. \return false, with nothing changed, when the path is full
    bool push(unsigned short id);
    /// Adds the item's NV id.
    bool push(const NV_item* item);
    /// Takes the id that was added last. \return false when there is none
    bool pop(unsigned short& id);
    /// The id that was added last. \return false when there is none
    bool last(unsigned short& id) const;

    /// How many ids there are.
    int fill() const;
    void clear();

    /// Writes a byte with the number of ids, then each of them in two bytes, the one added first in front. \return true
    bool serialise(NV_iterator* it) const;
    /// Reads what `serialise` wrote, behind the ids that are there already. Of what the path has no room for, and
    /// of what is not there, nothing is kept. \return true
    bool deserialise(NV_iterator* it);

    // The same, for who has to know. Additions of ours.

    /// \return whether all of it had room
    bool write(NV_iterator* it) const;
    /// \return whether all of it was there
    bool read(NV_iterator* it);

  private:
    static constexpr int full = -1; ///< what `tail_` is then

    int index(int position) const;

    unsigned short* ids_;
    int capacity_;
    int head_ = 0; ///< where the oldest id is
    int tail_ = 0; ///< where the next one goes
    unsigned short room_[max_capacity];
};

} // namespace NV_store
