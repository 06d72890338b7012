#pragma once

#include "Record_visitor.h"

#include <optional>
#include <string>

/// Finds the first fault of a settings file.
class Settings_check : public Record_visitor {
  public:
    void container_begins(const Record& record) override;
    void value(const Record& record, const Stored_value& value) override;
    void pointer(const Record& record, const Id_path& target) override;
    void container_ends(const Record& container, const Container_end& end) override;
    void fault(const Fault& fault) override;

    /// The fault and its offset; for a wrong checksum the offset where it is stored.
    const std::optional<Fault>& first_fault() const { return first_fault_; }
    unsigned saves() const { return saves_; }
    /// Records outside all containers: no checksum covers them.
    unsigned unprotected() const { return unprotected_; }

  private:
    void count_unprotected(const Record& record);

    std::optional<Fault> first_fault_;
    unsigned saves_ = 0;
    unsigned unprotected_ = 0;
};
