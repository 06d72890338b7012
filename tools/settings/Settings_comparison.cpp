#include "Settings_comparison.h"

#include "record_text.h"

#include <platform/Data_item.h>

#include <algorithm>

Settings_comparison::Settings_comparison(std::string first_name, std::string second_name)
    : names_{std::move(first_name), std::move(second_name)}, collectors_{{*this, 0}, {*this, 1}} {}

// ---- Collecting ----

void Settings_comparison::Collector::container_begins(const Record& record) {
    const std::size_t node = add(record, {true, true, type_name(record.type), ""});
    open_.push_back({node, record.type == DTS::Defs::type_list, {}});
}

void Settings_comparison::Collector::value(const Record& record, const Stored_value& value) {
    add(record, {true, false, kind_text(record.dimension, record.type, value),
                 value_text(record.dimension, record.type, value)});
}

void Settings_comparison::Collector::pointer(const Record& record, const Id_path& target) {
    add(record, {true, false, type_name(record.type), target_text(target)});
}

void Settings_comparison::Collector::container_ends(const Record&, const Container_end&) {
    open_.pop_back();
}

std::size_t Settings_comparison::Collector::add(const Record& record, Setting setting) {
    const bool in_list = !open_.empty() && open_.back().is_list;
    const unsigned occurrence = in_list ? open_.back().seen[record.id]++ : 0;
    const std::size_t node = comparison_.node_at(open_.empty() ? top : open_.back().node, record.id, occurrence);
    comparison_.nodes_[node].settings[file_] = std::move(setting);
    return node;
}

std::size_t Settings_comparison::node_at(std::size_t parent, unsigned short id, unsigned occurrence) {
    const auto [at, is_new] = index_.try_emplace({parent, id, occurrence}, nodes_.size());
    if (is_new)
        nodes_.push_back({parent, id, occurrence, {}});
    return at->second;
}

// ---- Reporting ----

std::size_t Settings_comparison::print(std::FILE* out) const {
    std::size_t count = 0;
    for (const Node& node : nodes_) {
        const std::string text = difference(node);
        if (text.empty())
            continue;
        std::fprintf(out, "%s: %s\n", path_of(node).c_str(), text.c_str());
        ++count;
    }
    return count;
}

/// \return "" when there is none
std::string Settings_comparison::difference(const Node& node) const {
    const auto& [a, b] = node.settings;
    const auto described = [&](int file) {
        const Setting& setting = node.settings[file];
        return setting.is_container ? setting.kind : setting.kind + " " + setting.value;
    };
    if (!a.exists || !b.exists) {
        const int file = a.exists ? 0 : 1;
        return node.settings[file].is_container ? "" : "only in " + names_[file] + ": " + described(file);
    }
    if (a.kind == b.kind && a.value == b.value)
        return "";
    return std::string(a.kind == b.kind ? "other value" : "other type") + ": " + described(0) + " in " + names_[0] +
           ", " + described(1) + " in " + names_[1];
}

/// "0/2/1"; the second one with id 1 in a list: "0/2/1[2]". Of a long path the last ids.
std::string Settings_comparison::path_of(const Node& node) const {
    constexpr unsigned most_shown = 32;
    std::string text;
    const Node* at = &node;
    for (unsigned shown = 1;; ++shown) {
        const std::string occurrence = at->occurrence > 0 ? "[" + std::to_string(at->occurrence + 1) + "]" : "";
        text.insert(0, std::to_string(at->id) + occurrence);
        if (at->parent == top)
            return text;
        text.insert(0, "/");
        if (shown == most_shown)
            return "..." + text;
        at = &nodes_[at->parent];
    }
}
