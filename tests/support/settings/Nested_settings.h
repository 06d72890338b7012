#pragma once

#include <glue/NV_store/NV_buffer_iterator.h>

#include <support/settings/Random_settings.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A settings tree with a container in a container, a list, a pointer and an enumeration, for tests of damage:
///
///     settings(0)
///       first(1): int                       the leaves in this order: 0
///       outer(2)
///         gain(1): float                    1
///         inner(3)
///           flag(1): bool                   2
///           wide(2): unsigned long long     3
///           mode(3): Mode                   4
///         offset(4): double                 5
///       entries(5): list
///         one(7): short                     6
///         two(8): short                     7
///       chosen(6): pointer                  8
///       last(7): unsigned char              9
struct Nested_settings : NV_store::NV_root {
    enum class Mode : unsigned { off, on = 0x01020304 };
    static constexpr std::size_t pointer_leaf = 8;

    Nested_settings() : NV_root(nullptr, 0, "settings") { _set_root(this); }

    NV_store::NV_number<int, 9> first{this, 1, 5, "first"};
    struct Outer : NV_store::NV_struct {
        using NV_struct::NV_struct;
        NV_store::NV_number<float, 10> gain{this, 1, 1.5F, "gain"};
        struct Inner : NV_store::NV_struct {
            using NV_struct::NV_struct;
            NV_store::NV_number<bool, 2> flag{this, 1, false, "flag"};
            NV_store::NV_number<unsigned long long, 15> wide{this, 2, 6, "wide"};
            NV_store::NV_enum<Mode> mode{this, 3, Mode::off, "mode"};
        } inner{this, nullptr, 3, "inner"};
        NV_store::NV_number<double, 11> offset{this, 4, -2.5, "offset"};
    } outer{this, nullptr, 2, "outer"};
    struct Entries : Positional_list {
        using Positional_list::Positional_list;
        NV_store::NV_number<short, 8> one{this, 7, 70, "one"};
        NV_store::NV_number<short, 8> two{this, 8, 80, "two"};
    } entries{this, nullptr, 5, "entries"};
    NV_store::NV_pointer chosen{this, this, 6, "chosen"};
    NV_store::NV_number<unsigned char, 4> last{this, 7, 9, "last"};

    /// Sets every value to one that differs from its default.
    void set_all() {
        first.set(-1000000);
        outer.gain.set(-0.0F);
        outer.inner.flag.set(true);
        outer.inner.wide.set(0xFEDCBA9876543210ULL);
        outer.inner.mode.set(Mode::on);
        outer.offset.set(std::numeric_limits<double>::infinity());
        entries.one.set(-32768);
        entries.two.set(513);
        chosen.set(&outer.inner.wide, NV_store::notify_all);
        last.set(255);
    }

    /// Every value to the bit; of the pointer the name of its target, which must be a node of this tree.
    std::vector<std::string> values() {
        const NV_item* const target = chosen.get();
        return {bits_of(first.get()),
                bits_of(outer.gain.get()),
                bits_of(outer.inner.flag.get()),
                bits_of(outer.inner.wide.get()),
                bits_of(outer.inner.mode.value()),
                bits_of(outer.offset.get()),
                bits_of(entries.one.get()),
                bits_of(entries.two.get()),
                target ? target->get_name() : "none",
                bits_of(last.get())};
    }

    /// The bytes of a full save.
    std::string record() {
        std::vector<unsigned char> storage(1000);
        NV_store::NV_buffer_iterator it(storage.data(), static_cast<int>(storage.size()), 0);
        it.set_mode(NV_store::NV_iterator::writing_all);
        EXPECT_TRUE(serialise(&it));
        return std::string(storage.begin(), storage.begin() + it.length());
    }

    /// Loads from a copy in a block of exactly their size, so that a sanitizer notices reads beyond the end.
    NV_store::NV_load_result load(const std::string& bytes) {
        std::vector<unsigned char> exact(bytes.begin(), bytes.end());
        exact.shrink_to_fit();
        NV_store::NV_buffer_iterator it(exact.data(), static_cast<int>(exact.size()), static_cast<int>(exact.size()));
        it.set_mode(NV_store::NV_iterator::reading);
        return load_all(*this, it);
    }
};
