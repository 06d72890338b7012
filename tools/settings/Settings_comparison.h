#pragma once

#include "Record_visitor.h"

#include <cstdio>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

/// Compares the settings of two files, each read by its own walk:
///
///     Settings_comparison comparison("old", "new");
///     Record_walker(old_bytes).walk(comparison.first());
///     Record_walker(new_bytes).walk(comparison.second());
///     const std::size_t differences = comparison.print(stdout);
///
/// A setting is identified by the ids that lead to it. Its last value counts, as it does when a file is loaded.
/// Settings of a list that share their id are distinguished by their order. Containers differ only by their content.
class Settings_comparison {
  public:
    /// The names are those of the files in the report.
    Settings_comparison(std::string first_name, std::string second_name);
    Settings_comparison(const Settings_comparison&) = delete;
    Settings_comparison& operator=(const Settings_comparison&) = delete;

    Record_visitor& first() { return collectors_[0]; }
    Record_visitor& second() { return collectors_[1]; }

    /// Prints a line for each difference. \return how many there are
    std::size_t print(std::FILE* out) const;

  private:
    /// A setting in one file.
    struct Setting {
        bool exists = false;
        bool is_container = false;
        std::string kind;
        std::string value;
    };

    /// A node in the tree of the settings of both files.
    struct Node {
        std::size_t parent;
        unsigned short id;
        unsigned occurrence; ///< in a list: how many with the same id are before it
        Setting settings[2];
    };

    /// Collects the settings of one file.
    class Collector : public Record_visitor {
      public:
        Collector(Settings_comparison& comparison, int file) : comparison_(comparison), file_(file) {}

        void container_begins(const Record& record) override;
        void value(const Record& record, const Stored_value& value) override;
        void pointer(const Record& record, const Id_path& target) override;
        void container_ends(const Record& container, const Container_end& end) override;

      private:
        struct Open {
            std::size_t node;
            bool is_list;
            std::unordered_map<unsigned short, unsigned> seen; ///< in a list: how many with an id
        };

        std::size_t add(const Record& record, Setting setting);

        Settings_comparison& comparison_;
        const int file_;
        std::vector<Open> open_;
    };

    static constexpr std::size_t top = static_cast<std::size_t>(-1); ///< the parent of nodes without one

    std::size_t node_at(std::size_t parent, unsigned short id, unsigned occurrence);
    std::string path_of(const Node& node) const;
    std::string difference(const Node& node) const;

    std::string names_[2];
    Collector collectors_[2];
    std::vector<Node> nodes_; ///< in the order of their first occurrence
    std::map<std::tuple<std::size_t, unsigned short, unsigned>, std::size_t> index_;
};
