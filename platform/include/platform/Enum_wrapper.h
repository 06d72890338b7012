#pragma once

#include <initializer_list>
#include <utility>
#include <vector>

/// Names for numbers, from a table.
class Enum_wrapper_ {
  public:
    /// The names are not copied.
    Enum_wrapper_(std::initializer_list<std::pair<int, const char*>> names) : names_(names) {}

    /// The name of a number; "UNKNOWN" when it has none.
    const char* id_to_str(int id) const {
        for (const auto& [number, name] : names_)
            if (number == id)
                return name;
        return "UNKNOWN";
    }

  private:
    std::vector<std::pair<int, const char*>> names_;
};
