#pragma once

#include "Record_visitor.h"

#include <cstdint>
#include <cstdio>
#include <map>

/// Counts the records and bytes of a settings file by type.
class Settings_statistics : public Record_visitor {
  public:
    struct Share {
        std::uint64_t records = 0;
        std::uint64_t bytes = 0; ///< with their headers; of containers only their own headers and checksums
    };

    void container_begins(const Record& record) override;
    void value(const Record& record, const Stored_value& value) override;
    void pointer(const Record& record, const Id_path& target) override;
    void container_ends(const Record& container, const Container_end& end) override;

    std::uint64_t records() const { return total_.records; }
    /// Bytes of all counted records.
    std::uint64_t bytes() const { return total_.bytes; }
    /// Levels of nested containers.
    std::size_t depth() const { return depth_; }
    std::uint64_t saves() const { return saves_; }
    /// By type code.
    const std::map<int, Share>& by_type() const { return by_type_; }

    void print(std::FILE* out) const;

  private:
    void count(const Record& record);
    void add_bytes(int type, std::uint64_t bytes);

    Share total_;
    std::size_t depth_ = 0;
    std::uint64_t saves_ = 0;
    std::map<int, Share> by_type_;
};
