#pragma once

#include "Stored_value.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A record of a settings file: where it is, and what its header says.
struct Record {
    std::size_t offset = 0; ///< of its header, in bytes from the beginning of the file
    std::size_t size = 0;   ///< in bytes, header included; of a container the header alone
    std::size_t depth = 0;  ///< containers around it; 0: a save of its own
    unsigned short id = 0;
    int dimension = 0; ///< 0 a single value, 1 an array, 2 a matrix
    int type = 0;      ///< a `DTS::Defs::Type`
};

/// What closes a container.
struct Container_end {
    std::size_t checksum_offset = 0;
    std::uint32_t stored = 0;   ///< the checksum in the file
    std::uint32_t computed = 0; ///< the checksum of what is there

    bool is_good() const { return stored == computed; }
    /// Bytes of the closing header and the checksum.
    static constexpr std::size_t size = 8;
};

/// Why nothing can be made of a file from some offset on.
struct Fault {
    std::size_t offset = 0;
    std::string what;
};

/// The ids that lead to a node. Ids of the containers around come first.
using Id_path = std::vector<unsigned short>;

/// Told what a settings file says, record by record, in the order of the file; see `Record_walker`.
class Record_visitor {
  public:
    virtual ~Record_visitor() = default;

    virtual void container_begins(const Record&) {}
    virtual void value(const Record&, const Stored_value&) {}
    /// \param target  from the outermost container to the node that the pointer leads to; empty: to none
    virtual void pointer(const Record&, const Id_path& target) { static_cast<void>(target); }
    /// \param container  the record that `container_begins` was told of
    virtual void container_ends(const Record& container, const Container_end&) { static_cast<void>(container); }
    /// The last event, when there is one: the rest of the file is not understood. Containers may still be open.
    virtual void fault(const Fault&) {}
};
