#pragma once

#include <platform/NV_iterator.h>

#include <string>

/// Moves plain bytes through an iterator. A fixture derives from it and supplies the iterator:
///
///     struct NV_file_iterator_test : testing::Test, Iterator_bytes {
///         NV_iterator& iterator() override { return file; }
struct Iterator_bytes {
    virtual NV_store::NV_iterator& iterator() = 0;

    bool push(std::string bytes) { return iterator().push_bytes(data(bytes), static_cast<int>(bytes.size())); }
    /// \return the bytes, or "failed"
    std::string pop(int count) {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        return iterator().pop_bytes(data(bytes), count) ? bytes : "failed";
    }
    std::string peek(int count) {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        return iterator().peek_bytes(data(bytes), count) ? bytes : "failed";
    }
    unsigned used() {
        unsigned used = 0;
        unsigned total = 0;
        iterator().get_free_space(used, total);
        return used;
    }
    unsigned total() {
        unsigned used = 0;
        unsigned total = 0;
        iterator().get_free_space(used, total);
        return total;
    }

  protected:
    ~Iterator_bytes() = default;

  private:
    static unsigned char* data(std::string& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }
};
