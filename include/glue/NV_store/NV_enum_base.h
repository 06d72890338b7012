#pragma once

#include <glue/NV_store/NV_item.h>

namespace NV_store {

/// A setting that is one of a list of values, stored as a number without a sign in the fewest bytes that hold it: 1, 2
/// or 4.
///
/// The derived class keeps the value; `NV_enum` does that for any enumeration type.
class GLUE_EXPORT NV_enum_base : public NV_item {
  public:
    NV_enum_base(NV_container* parent, unsigned short id, const char* name);

    using NV_item::deserialise;
    using NV_item::serialise;

    /// The value as a number.
    long long get() const { return get_value(); }
    void set(long long value) { set_value(value); }

    /// Writes the record of a value, if the iterator's mode includes it, and clears both dirty flags.
    [[nodiscard]] bool serialise(NV_iterator* it, unsigned int value);
    /// Reads a record of 1, 2, 4 or 8 bytes; of 8 the lower four. \return false, with `value` unchanged, for any other
    bool deserialise(NV_iterator* it, unsigned int& value);

  protected:
    // ---- Virtual operations: their order is part of the binary interface; both acquire the lock ----

    virtual long long get_value() const = 0;
    virtual void set_value(long long value) = 0;
};

} // namespace NV_store
