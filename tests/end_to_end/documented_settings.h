#pragma once

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

/// The tree that docs/wire_and_file_formats.md shows, character for character.
struct Documented_settings : NV_store::NV_root {
    Documented_settings() : NV_root(nullptr, 0, "settings") { _set_root(this); }

    NV_store::NV_number<unsigned int, 6> starts{this, 1, 0, "starts"};
    struct Guidance : NV_store::NV_struct {
        using NV_struct::NV_struct;
        enum class Mode : unsigned { open_loop, closed_loop };
        NV_store::NV_number<float, 10> swath_width{this, 1, 12.0F, "swath_width"};
        NV_store::NV_number<bool, 2> beeper{this, 2, false, "beeper"};
        NV_store::NV_enum<Mode> mode{this, 3, Mode::open_loop, "mode"};
    } guidance{this, nullptr, 2, "guidance"};
    struct Offsets : NV_store::NV_container {
        using NV_container::NV_container;
        int get_type() const override { return DTS::Defs::type_list; }
        NV_store::NV_number<short, 8> left{this, 1, 0, "left"};
        NV_store::NV_number<short, 8> right{this, 1, 0, "right"};
    } offsets{this, nullptr, 3, "offsets"};
    NV_store::NV_pointer shown{this, this, 4, "shown"};
};
