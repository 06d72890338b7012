// The settings of a unit. Several examples save, change and share them.
#pragma once

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

/// Members are settings: each has an id, a default and a name. Files know a setting by its id, so an id never changes.
struct Guidance : NV_store::NV_struct {
    enum class Mode : unsigned { open_loop, closed_loop };

    explicit Guidance(NV_store::NV_container* parent) : NV_struct(parent, nullptr, 2, "guidance") {}
    NV_store::NV_number<float, 10> swath_width{this, 1, 12.0F, "swath_width"}; // metres
    NV_store::NV_number<bool, 2> beeper{this, 2, true, "beeper"};
    NV_store::NV_enum<Mode> mode{this, 3, Mode::closed_loop, "mode"};
};

struct Unit_settings : NV_store::NV_root {
    explicit Unit_settings(module_man& modules) : NV_root(&modules, 0, "settings") { _set_root(this); }
    NV_store::NV_number<unsigned, 6> starts{this, 1, 0, "starts"};
    Guidance guidance{this};
};
