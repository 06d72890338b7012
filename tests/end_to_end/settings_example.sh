#!/usr/bin/env bash
# usage: settings_example.sh EXAMPLE SETTINGS_TOOL
# The example keeps its settings from run to run, shows changes, and survives a damaged file.
. "$(dirname "$0")/expect.sh"
example=$1 settings_tool=$2
file=$folder/unit

expect "no settings yet: defaults
settings: {0,{12,1,1}}
signal: swath width is 9.5 m
waiter: 2 changes
settings: {1,{9.5,1,1}}" "$("$example" "$file" guidance/swath_width 9.5)"

expect "settings: {1,{9.5,1,1}}
waiter: 1 changes
settings: {2,{9.5,1,1}}" "$("$example" "$file")"

expect "settings: {2,{9.5,1,1}}
guidance/colour does not accept 3
waiter: 1 changes
settings: {3,{9.5,1,1}}" "$("$example" "$file" guidance/colour 3)"

"$settings_tool" verify "$file"
expect "      id 1  value, type 10 (float): 9.5" "$("$settings_tool" show "$file" | grep float)"

printf 'x' | dd of="$file" bs=1 seek=22 conv=notrunc status=none # within guidance
expect "settings damaged: lost ones have their defaults" "$("$example" "$file" 2>/dev/null | head -1)"
"$settings_tool" verify "$file" # the run above saved it again
echo "settings are kept and repaired"
