#pragma once

#include <glue/export.h>

namespace NV_store {

class NV_item;
class NV_iterator;

/// The path from a node of a settings tree up to the node at which a search began: their NV ids, the node's own first.
///
/// A ring of 16-bit ids with a fixed capacity. Not synchronised.
class GLUE_EXPORT NV_path {
  public:
    static constexpr int max_capacity = 10;

    /// An empty path. A capacity below 0 or above `max_capacity` is limited to that range.
    explicit NV_path(int capacity = max_capacity);
    NV_path(const NV_path& other);
    NV_path& operator=(const NV_path& other);

    /// Appends an id. \return false, with nothing changed, when the path is full
    bool push(unsigned short id);
    /// Appends the item's NV id.
    bool push(const NV_item* item);
    /// Removes the id that was appended last. \return false when there is none
    bool pop(unsigned short& id);
    /// The id that was appended last. \return false when there is none
    bool last(unsigned short& id) const;

    /// The number of ids.
    int fill() const;
    void clear();

    /// Writes the number of ids in one byte, then each id in two bytes, the one that was appended first at the
    /// beginning. \return true
    bool serialise(NV_iterator* it) const;
    /// Reads what `serialise` wrote and appends it. Ids that do not fit, and ids that cannot be read, are dropped.
    /// \return true
    bool deserialise(NV_iterator* it);

    // ---- The same with a result. Additions of ours ----

    /// \return whether the iterator took all bytes
    [[nodiscard]] bool write(NV_iterator* it) const;
    /// \return whether all bytes could be read
    [[nodiscard]] bool read(NV_iterator* it);

  private:
    static constexpr int full = -1; ///< the value of `tail_` in a full path

    int index(int position) const;

    unsigned short* ids_;
    int capacity_;
    int head_ = 0; ///< index of the oldest id
    int tail_ = 0; ///< index of the next id
    unsigned short storage_[max_capacity];
};

} // namespace NV_store
