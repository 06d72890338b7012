#pragma once

#include <settings/Record_walker.h>
#include <settings/record_text.h>

#include <string>
#include <vector>

/// The events of a walk through a settings file, one entry each: "0:{1" is a container with id 1 at offset 0.
class Recorded_walk : public Record_visitor {
  public:
    explicit Recorded_walk(const std::string& file) {
        std::vector<unsigned char> exact(file.begin(), file.end());
        exact.shrink_to_fit(); // a sanitizer notices reads beyond the end
        whole = Record_walker(exact).walk(*this);
    }

    std::vector<std::string> events;
    std::vector<Container_end> ends;
    std::size_t deepest = 0;
    std::size_t fault_offset = static_cast<std::size_t>(-1);
    std::string fault_text;
    bool whole = false; ///< the result of the walk

    void container_begins(const Record& record) override {
        deepest = std::max(deepest, record.depth + 1);
        add(record, "{");
    }
    void value(const Record& record, const Stored_value& value) override {
        add(record,
            kind_text(record.dimension, record.type, value) + " " + value_text(record.dimension, record.type, value));
    }
    void pointer(const Record& record, const Id_path& target) override { add(record, target_text(target)); }
    void container_ends(const Record& container, const Container_end& end) override {
        ends.push_back(end);
        add(container, end.is_good() ? "} good" : "} bad");
    }
    void fault(const Fault& fault) override {
        fault_offset = fault.offset;
        fault_text = fault.what;
    }

  private:
    void add(const Record& record, const std::string& what) {
        if (events.size() < 1000)
            events.push_back(std::to_string(record.offset) + " " + std::to_string(record.id) + ": " + what);
    }
};
