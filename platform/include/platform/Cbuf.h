#pragma once

#include <algorithm>
#include <cstdint>

/// A ring over storage that the caller owns: the receive and transmit buffers of every stream.
///
///         head            tail
///         |               |
///     [ ] [c] [d] [e] [f] [ ] [ ] [ ]
///
/// It is four words: storage, capacity, `head` (the oldest element) and `tail` (where the next one goes). Equal
/// positions mean empty; a `tail` of `full_mark` means full, so that every slot can be used. The ring takes no lock: a
/// producer and a consumer in different threads hold their own around every call.
template <typename T>
class Cbuf_templ {
  public:
    using Index = std::uint32_t;

    /// The value of `tail` in a full ring.
    static constexpr Index full_mark = 0xFFFFFFFFU;

    /// Adjacent elements of the storage.
    template <typename Element>
    struct Region {
        Element* begin;
        Index size;
    };

    /// An empty ring over `capacity` elements (at least one) at `storage`, which must outlive the ring.
    Cbuf_templ(T* storage, Index capacity) : storage_(storage), capacity_(capacity), head_(0), tail_(0) {}
    Cbuf_templ(const Cbuf_templ&) = delete;
    Cbuf_templ& operator=(const Cbuf_templ&) = delete;

    // ---- State ----

    Index capacity() const { return capacity_; }
    bool full() const { return tail_ == full_mark; }
    bool empty() const { return tail_ == head_; }
    /// Elements buffered.
    Index size() const { return full() ? capacity_ : (tail_ - head_ + capacity_) % capacity_; }
    /// Free space, in elements.
    Index free_space() const { return capacity_ - size(); }
    Index head() const { return head_; }
    Index tail() const { return tail_; }
    /// Whether the used elements reach the end of the storage, so that more of them may continue at its start.
    bool wraps() const { return full() ? head_ != 0 : tail_ < head_; }

    // ---- Producing ----

    /// Appends as many of `count` elements as fit, in at most two copies.
    /// \return how many were appended
    Index append(const T* source, Index count) {
        Index appended = 0;
        while (appended < count && !full()) {
            const Region<T> free = free_region();
            const Index piece = std::min(free.size, count - appended);
            std::copy_n(source + appended, piece, free.begin);
            commit(piece);
            appended += piece;
        }
        return appended;
    }

    /// Appends one element.
    /// \return false, with nothing changed, when the ring is full
    bool push(T element) { return append(&element, 1) == 1; }

    /// The adjacent free elements from `tail` on: fill some, then `commit` them.
    Region<T> free_region() {
        if (full())
            return {storage_, 0};
        return {storage_ + tail_, (tail_ < head_ ? head_ : capacity_) - tail_};
    }

    /// Appends the first `count` elements of `free_region()`, which are filled already.
    void commit(Index count) {
        if (count == 0)
            return;
        tail_ = (tail_ + count) % capacity_;
        if (tail_ == head_)
            tail_ = full_mark;
    }

    // ---- Peeking: consumes nothing ----

    /// Copies up to `count` elements that start `offset` past the oldest one.
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

    /// The element at the start of the storage, wherever `head` is.
    T storage_front() const { return storage_[0]; }

    /// The adjacent elements from the oldest one on.
    Region<const T> used_region() const {
        if (full() || tail_ < head_)
            return {storage_ + head_, capacity_ - head_};
        return {storage_ + head_, tail_ - head_};
    }

    // ---- Consuming ----

    /// Drops the oldest `count` elements, or all when there are fewer.
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
    /// The index in the storage of the element `offset` (at most the capacity) past the oldest one.
    Index position(Index offset) const { return (head_ + offset) % capacity_; }

    T* storage_;
    Index capacity_;
    Index head_;
    Index tail_;
};
