#!/usr/bin/env bash
# usage: active_implement.sh EXAMPLE SETTINGS_TOOL
# The example draws again the fields whose settings change, also those of the active implement, and no others.
. "$(dirname "$0")/expect.sh"
example=$1 settings_tool=$2
file=$folder/machine

expect_drawn() { # TEXT ARGUMENTS...; runs the example
    expect "$1" "$("$example" "$file" "${@:2}" 2>/dev/null)"
}

expect_drawn "active: seeder {3}
headland: 20"
expect_drawn "active: seeder {3}
headland: 20" sprayer/width 24 # the display shows nothing of that
expect_drawn "active: seeder {3}
headland: 20
active: sprayer {24}" active sprayer
expect_drawn "active: sprayer {24}
headland: 20
active: sprayer {36}" sprayer/width 36
expect_drawn "active: sprayer {36}
headland: 20
headland: 25" headland 25
expect_drawn "active: sprayer {36}
headland: 25" headland 25 # no change
expect_drawn "active: sprayer {36}
headland: 25
active does not accept headland" active headland
expect_drawn "active: sprayer {36}
headland: 25"

expect "    id 3  pointer, type 14 (pointer): to 0/2" "$("$settings_tool" "$file" | grep pointer)"
flip "$file" 54 # within the pointer's path
expect_drawn "active: seeder {3}
headland: 20"
echo "changed fields are drawn"
