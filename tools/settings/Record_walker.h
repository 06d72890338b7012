#pragma once

#include "Record_visitor.h"
#include "Running_checksum.h"

#include <glue/NV_store/NV_buffer_iterator.h>

#include <vector>

namespace NV_store {
struct Record_header;
}

/// Walks through the records of a settings file without knowing the tree that they are of, and tells a visitor.
///
///     Record_walker(bytes).walk(visitor);
///
/// What a file has of several saves, one behind the other, comes as several records of depth 0. A checksum that is
/// wrong stops nothing; what is no record does. Any bytes will do, nested as deep as they like: the walk takes time in
/// proportion to their number.
class Record_walker {
  public:
    /// \param bytes  outlive the walker; nothing changes them
    explicit Record_walker(std::vector<unsigned char>& bytes);

    /// Walks once, from the beginning.
    /// \return whether the file was understood up to its end, and is not empty; else the last event was a fault
    bool walk(Record_visitor& visitor);

  private:
    /// Takes the bytes in the library's own encoding, counts them, and keeps their checksum.
    class Bytes : public NV_store::NV_buffer_iterator {
      public:
        explicit Bytes(std::vector<unsigned char>& bytes);
        bool pop_bytes(unsigned char* bytes, int count) override;

        const Running_checksum& checksum() const { return checksum_; }

      private:
        Running_checksum checksum_;
    };

    struct Container {
        Record record;
        Running_checksum::Mark begin;
    };

    std::size_t position() const { return it_.checksum().position(); }
    bool is_at_end() const { return position() == size_; }

    bool take_record();
    bool begin_container(const Record& record, const Running_checksum::Mark& begin);
    bool end_container(const Record& record);
    bool take_value(Record record);
    bool take_value_sizes(const Record& record, Stored_value& value);
    bool take_pointer(Record record);

    bool ends_early();
    bool fails(std::size_t offset, const std::string& what);

    Bytes it_;
    const std::size_t size_;
    Record_visitor* visitor_ = nullptr;
    std::vector<Container> open_;
};
