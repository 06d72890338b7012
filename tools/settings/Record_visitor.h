#pragma once

#include "Stored_value.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A record of a settings file: its position, and the content of its header.
struct Record {
    std::size_t offset = 0; ///< of its header, in bytes from the beginning of the file
    std::size_t size = 0;   ///< in bytes, header included; of a container the header alone
    std::size_t depth = 0;  ///< containers around it; 0: the record is a save
    unsigned short id = 0;
    int dimension = 0; ///< 0 a single value, 1 an array, 2 a matrix
    int type = 0;      ///< a `DTS::Defs::Type`
};

/// The end of a container.
struct Container_end {
    std::size_t checksum_offset = 0;
    std::uint32_t stored = 0;   ///< the checksum in the file
    std::uint32_t computed = 0; ///< the checksum of the content

    bool is_good() const { return stored == computed; }
    /// Bytes of the closing header and the checksum.
    static constexpr std::size_t size = 8;
};

/// The reason why a file cannot be read from some offset on.
struct Fault {
    std::size_t offset = 0;
    std::string what;
};

/// The ids that lead to a node, the outermost container's first.
using Id_path = std::vector<unsigned short>;

/// Receives the content of a settings file, record by record, in the order of the file; see `Record_walker`.
class Record_visitor {
  public:
    virtual ~Record_visitor() = default;

    virtual void container_begins(const Record&) {}
    virtual void value(const Record&, const Stored_value&) {}
    /// \param target  from the outermost container to the target; empty: no target
    virtual void pointer(const Record&, const Id_path& target) { static_cast<void>(target); }
    /// \param container  the record that was passed to `container_begins`
    virtual void container_ends(const Record& container, const Container_end&) { static_cast<void>(container); }
    /// The last event, if it occurs: the rest of the file cannot be read. Containers may still be open.
    virtual void fault(const Fault&) {}
};
