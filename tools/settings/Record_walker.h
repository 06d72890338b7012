#pragma once

#include "Record_visitor.h"
#include "Running_checksum.h"

#include <glue/NV_store/NV_buffer_iterator.h>

#include <vector>

/// Reads the records of a settings file without knowing their tree, and passes them to a visitor.
///
///     Record_walker(bytes).walk(visitor);
///
/// Several saves in one file are several records of depth 0. A wrong checksum does not stop the walk; bytes that are
/// not a record do. The input may be any bytes, nested to any depth: the walk takes time in proportion to their number.
class Record_walker {
  public:
    /// \param bytes  outlive the walker and are not changed
    explicit Record_walker(std::vector<unsigned char>& bytes);

    /// Walks once, from the beginning.
    /// \return whether the file is not empty and could be read up to its end; else the last event was a fault
    bool walk(Record_visitor& visitor);

  private:
    /// Reads the bytes in the library's own encoding, counts them, and computes their checksum.
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

    bool read_record();
    bool begin_container(const Record& record, const Running_checksum::Mark& begin);
    bool end_container(const Record& record);
    bool read_value(Record record);
    bool read_value_sizes(const Record& record, Stored_value& value);
    bool read_pointer(Record record);

    bool ends_early();
    bool fails(std::size_t offset, const std::string& what);

    Bytes it_;
    const std::size_t size_;
    Record_visitor* visitor_ = nullptr;
    std::vector<Container> open_;
};
