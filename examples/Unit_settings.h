// The settings of a unit, which several examples keep, change and share.
#pragma once

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

/// Members are settings: each has an id, which it is saved under and so keeps for ever, a default and a name.
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
