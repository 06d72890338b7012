#!/usr/bin/env bash
# usage: share_settings.sh EXAMPLE SETTINGS_EXAMPLE SETTINGS_TOOL
# The example copies what another unit has changed, keeps what is each unit's own, and copies nothing that is damaged.
. "$(dirname "$0")/expect.sh"
example=$1 settings=$2 settings_tool=$3
mine=$folder/mine theirs=$folder/theirs

for value in 9.5 8.5 7.5; do
    "$settings" "$theirs" guidance/swath_width "$value" >/dev/null 2>&1
done
"$settings" "$theirs" guidance/beeper 0 >/dev/null
"$settings" "$mine" guidance/mode 0 >/dev/null 2>&1
cp "$mine" "$folder/before"

# Their count of starts is not sent.
"$example" "$theirs" >"$folder/sent"
expect "save 1, at offset 0
  id 0  container, type 0 (root)
    id 2  container, type 1 (struct)
      id 1  value, type 10 (float): 7.5
      id 2  value, type 2 (bool): false
      id 3  value, type 4 (uint8): 1" "$("$settings_tool" "$folder/sent" | head -6)"

cp "$folder/sent" "$folder/damaged"
flip "$folder/damaged" 13
expect_failure 1 "damaged settings" "$example" "$mine" "exec:tail -c +1 $folder/damaged"
cmp "$folder/before" "$mine"

expect "swath_width: 7.5, was 12
beeper: 0, was 1
mode: 1, was 0" "$("$example" "$mine" "exec:$example $theirs")"
expect "" "$("$example" "$mine" "exec:$example $theirs")"
expect "settings: {1,{7.5,0,1}}" "$("$settings" "$mine" | head -1)"

expect_failure 1 "a text that makes no stream" "$example" "$mine" "exec:"
expect_failure 1 "a missing file" "$example" "$folder/missing"
echo "copied"
