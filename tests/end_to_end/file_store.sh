#!/usr/bin/env bash
# usage: file_store.sh EXAMPLE SETTINGS_TOOL
# The example goes on counting and reporting while its store becomes full again and again, is damaged, or loses a file.
. "$(dirname "$0")/expect.sh"
example=$1 settings_tool=$2
store=$folder/store
mkdir "$store"

expect_start() { # TEXT; runs the example once
    expect "$1" "$("$example" "$store" 2>/dev/null)"
}
expect_sizes() { # SETTINGS REPORT
    expect "$1 $2" "$(stat -c %s "$store/settings" "$store/report" | xargs)"
}

expect_start "$store: 28 of 100 bytes
file report
file settings
start 1"
expect_sizes 20 8
expect_start "$store: 56 of 100 bytes
file report
file settings
start 1
start 2"
expect_sizes 40 16 # the change is appended
"$example" "$store" >/dev/null
expect_sizes 60 24
expect_start "full: the report makes room
$store: 28 of 100 bytes
file report
file settings
start 4"
expect_sizes 20 8
"$settings_tool" verify "$store/settings"

rm "$store/report"
expect_start "$store: 48 of 100 bytes
file report
file settings
start 5"
expect_sizes 40 8
flip "$store/settings" 28 # the appended value
expect_start "$store: 36 of 100 bytes
file report
file settings
start 5
start 1" # the count has its default again, and everything is saved
expect_sizes 20 16
"$settings_tool" verify "$store/settings"

mkdir "$store/folder" # does not belong to the store
head -c 60 /dev/zero >"$store/other"
expect_start "full: the report makes room
$store: 88 of 100 bytes
file other
file report
file settings
start 2"
expect_failure 1 "a missing folder" "$example" "$folder/missing"
echo "counted on"
