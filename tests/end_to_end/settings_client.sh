#!/usr/bin/env bash
# usage: settings_client.sh CLIENT SERVER
# The client shows every setting of a server's tree, from the server's description of it, and accepts no other answer.
. "$(dirname "$0")/expect.sh"
client=$1 server=$2

expect "settings/starts: 0
settings/guidance/swath_width: 12
settings/guidance/beeper: 1
settings/guidance/mode: 1
settings/sections: 1 0 1" "$("$client" "exec:$server")"

# The values alone: a number, those of guidance, and the sections after their count.
diff <(printf '\x11\x00\x00\x00\x00\x00\x00\x00\x40\x41\x01\x01\x00\x00\x00\x03\x01\x00\x01') <(printf v | "$server")
printf s | "$server" | tail -c +3 | sed 's/:[0-9]*\([{},]\|$\)/\1/g' >"$folder/structure" # data numbers left out
expect "settings:0{starts:6,guidance:1{swath_width:10,beeper:2,mode:6},sections:66}" "$(cat "$folder/structure")"

printf '\x07\x00x:12:1{\x00\x00' >"$folder/answer"
expect_failure 1 "a description without an end" "$client" "exec:tail -c +1 $folder/answer"
echo "shown"
