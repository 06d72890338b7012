#pragma once

#include <algorithm>
#include <cstdint>

/// A ring over storage that somebody else owns: the receive and transmit buffers of every stream.
///
/// It is four words: storage, capacity, `head` (the oldest element) and `tail` (where the next one goes). No slot is
/// wasted to tell full from empty: equal positions mean empty, and a `tail` of `full_mark` means full. Producers and
/// consumers in different threads hold a lock of their own around every call; the ring takes none.
template <typename T>
class Cbuf_templ {
  public:
    using Index = std::uint32_t;

    /// The value of `tail` in a full ring.
    static constexpr Index full_mark = 0xFFFFFFFFU;

    /// Elements that lie side by side in the storage.
    template <typename Element>
    struct Region {
        Element* begin;
        Index size;
    };

    /// An empty ring over `capacity` elements (at least one) at `storage`, which outlives it.
    Cbuf_templ(T* storage, Index capacity) : storage_(storage), capacity_(capacity), head_(0), tail_(0) {}
    Cbuf_templ(const Cbuf_templ&) = delete;
    Cbuf_templ& operator=(const Cbuf_templ&) = delete;

    // ---- How much there is ----

    Index capacity() const { return capacity_; }
    bool full() const { return tail_ == full_mark; }
    bool empty() const { return tail_ == head_; }
    /// Elements buffered.
    Index size() const { return full() ? capacity_ : (tail_ - head_ + capacity_) % capacity_; }
    /// Elements that still fit.
    Index room() const { return capacity_ - size(); }
    Index head() const { return head_; }
    Index tail() const { return tail_; }
    /// Whether the used elements reach the end of the storage, so that more of them may follow at its start.
    bool wraps() const { return full() ? head_ != 0 : tail_ < head_; }

    // ---- Putting in ----

    /// Copies in as many of `count` elements as fit, in at most two pieces.
    /// \return how many were taken
    Index append(const T* source, Index count) {
        Index taken = 0;
        while (taken < count && !full()) {
            const Region<T> free = free_region();
            const Index piece = std::min(free.size, count - taken);
            std::copy_n(source + taken, piece, free.begin);
            commit(piece);
            taken += piece;
        }
        return taken;
    }

    /// Puts one element in; false, and nothing happens, when the ring is full.
    bool push(T element) { return append(&element, 1) == 1; }

    /// The free elements from `tail` on that lie side by side; fill some, then `commit` them.
    Region<T> free_region() {
        if (full())
            return {storage_, 0};
        return {storage_ + tail_, (tail_ < head_ ? head_ : capacity_) - tail_};
    }

    /// Makes the first `count` elements of `free_region()` part of the ring.
    void commit(Index count) {
        if (count == 0)
            return;
        tail_ = (tail_ + count) % capacity_;
        if (tail_ == head_)
            tail_ = full_mark;
    }

    // ---- Looking ----

    /// Copies up to `count` elements that start `offset` past the oldest one; consumes nothing.
    /// \return how many were copied
    Index peek(T* destination, Index count, Index offset) const {
        const Index used = size();
        if (offset >= used)
            return 0;
        count = std::min(count, used - offset);
        const Index start = position(offset);
        const Index first = std::min(count, capacity_ - start);
        std::copy_n(storage_ + start, first, destination);
        std::copy_n(storage_, count - first, destination + first);
        return count;
    }

    /// The element `offset` past the oldest one; `offset` is below `size()`.
    T at(Index offset) const { return storage_[position(offset)]; }

    /// The element at the start of the storage, wherever `head` stands.
    T storage_front() const { return storage_[0]; }

    /// The oldest elements that lie side by side.
    Region<const T> used_region() const {
        if (full() || tail_ < head_)
            return {storage_ + head_, capacity_ - head_};
        return {storage_ + head_, tail_ - head_};
    }

    // ---- Taking out ----

    /// Drops the oldest `count` elements, all of them when there are fewer.
    void consume(Index count) {
        count = std::min(count, size());
        if (count == 0)
            return;
        if (full())
            tail_ = head_;
        head_ = position(count);
    }

    /// Drops everything.
    void clear() {
        if (full())
            tail_ = head_;
        else
            head_ = tail_;
    }

  private:
    /// Where the element `offset` (at most the capacity) past the oldest one lies in the storage.
    Index position(Index offset) const { return (head_ + offset) % capacity_; }

    T* storage_;
    Index capacity_;
    Index head_;
    Index tail_;
};
