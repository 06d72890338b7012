#pragma once

#include "Record_visitor.h"

#include <cstdio>

/// Prints a settings file for people: a line for each record, indented by the containers around it.
class Settings_listing : public Record_visitor {
  public:
    /// Prints to `output`, which is not owned.
    explicit Settings_listing(std::FILE* output) : output_(output) {}

    void container_begins(const Record& record) override;
    void value(const Record& record, const Stored_value& value) override;
    void pointer(const Record& record, const Id_path& target) override;
    void container_ends(const Record& container, const Container_end& end) override;
    void fault(const Fault& fault) override;

    /// Whether there was no fault, and every checksum was good.
    bool is_good() const { return good_; }

  private:
    void begin_line(const Record& record);
    void indent(std::size_t depth);

    std::FILE* const output_;
    unsigned saves_ = 0;
    bool good_ = true;
};
