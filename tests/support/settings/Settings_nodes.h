#pragma once

#include <glue/NV_store/NV_container.h>
#include <glue/NV_store/NV_number.h>

#include <QObject>

#include <memory>
#include <string>
#include <vector>

// Nodes for small settings trees.

using Int_setting = NV_store::NV_number<int, 9>;

/// A container that addresses its children by position.
struct Settings_array : NV_store::NV_struct {
    using NV_struct::NV_struct;
    bool children_named() const override { return false; }
};

/// A container of type 13: its children may share their ids.
struct Settings_list : NV_store::NV_container {
    using NV_container::NV_container;
    int get_type() const override { return DTS::Defs::type_list; }
};

/// A number that counts its saves, loads and defaults.
struct Counted_setting : Int_setting {
    using Int_setting::deserialise;
    using Int_setting::Int_setting;
    using Int_setting::serialise;

    bool serialise(NV_store::NV_iterator* it) override {
        ++saves;
        return Int_setting::serialise(it);
    }
    bool deserialise(NV_store::NV_iterator* it) override {
        ++loads;
        return Int_setting::deserialise(it);
    }
    bool set_default(bool all) override {
        ++defaults;
        Int_setting::set_default(all);
        return !refuses_default;
    }

    int saves = 0;
    int loads = 0;
    int defaults = 0;
    bool refuses_default = false;
};

/// A container of `count` children, named "a", "b" and so on, with ids and values from 0.
template <typename Container = NV_store::NV_struct>
struct Settings_family {
    explicit Settings_family(int count) {
        for (int i = 0; i < count; ++i) {
            names.push_back(std::make_unique<std::string>(1, static_cast<char>('a' + i)));
            children.push_back(
                std::make_unique<Int_setting>(&container, static_cast<unsigned short>(i), i, names.back()->c_str()));
        }
    }
    Int_setting& operator[](int i) { return *children[static_cast<std::size_t>(i)]; }

    Container container{9, "family"};
    std::vector<std::unique_ptr<std::string>> names;
    std::vector<std::unique_ptr<Int_setting>> children;
};

/// Records the signals of nodes in their order: a node's name for the signal without an argument, "name*" for the
/// other.
class Recorded_signals {
  public:
    void watch(NV_store::NV_item& item) {
        QObject::connect(&item, qOverload<>(&NV_store::NV_item::value_changed), &context_,
                         [this, &item] { names_.emplace_back(item.get_name()); });
        QObject::connect(
            &item, qOverload<NV_store::NV_item*>(&NV_store::NV_item::value_changed), &context_,
            [this](NV_store::NV_item* sender) { names_.push_back(std::string(sender->get_name()) + "*"); });
    }

    const std::vector<std::string>& names() const { return names_; }
    void clear() { names_.clear(); }

  private:
    QObject context_; ///< the connections end with it
    std::vector<std::string> names_;
};

/// Calls `slot` at every `value_changed()` of a node.
template <typename Slot>
QMetaObject::Connection on_change(NV_store::NV_item& item, Slot slot) {
    return QObject::connect(&item, qOverload<>(&NV_store::NV_item::value_changed), slot);
}
