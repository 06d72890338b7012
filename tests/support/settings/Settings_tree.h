#pragma once

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <platform/module_man.h>

#include <cmath>
#include <limits>

/// A settings tree with several types of nodes, for tests that save and load:
///
///     settings(0)
///       speed(1): int, 5        name of the id in brackets
///       guidance(2)
///         width(1): float, 12
///         beeper(2): bool, on
///         mode(3): Mode, closed_loop
///       lamp(3): unsigned char, 200
struct Settings_tree : NV_store::NV_root {
    enum class Mode : unsigned { open_loop, closed_loop, off = 300 };

    explicit Settings_tree(module_man* modules = nullptr) : NV_root(modules, 0, "settings") { _set_root(this); }

    NV_store::NV_number<int, 9> speed{this, 1, 5, "speed"};
    struct Guidance : NV_store::NV_struct {
        using NV_struct::NV_struct;
        NV_store::NV_number<float, 10> width{this, 1, 12.0F, "width"};
        NV_store::NV_number<bool, 2> beeper{this, 2, true, "beeper"};
        NV_store::NV_enum<Mode> mode{this, 3, Mode::closed_loop, "mode"};
    } guidance{this, nullptr, 2, "guidance"};
    NV_store::NV_number<unsigned char, 4> lamp{this, 3, 200, "lamp"};
};
