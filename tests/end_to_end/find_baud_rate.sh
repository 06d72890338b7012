#!/usr/bin/env bash
# usage: find_baud_rate.sh EXAMPLE SIMULATOR
# The example knows a line with a receiver from one that is silent or noisy, and leaves the line as it was or as found.
. "$(dirname "$0")/expect.sh"
example=$1 simulator=$2

open_line() { # NAME ADDRESS: a terminal that says what a socat address says
    socat -U "pty,raw,echo=0,b4800,link=$folder/$1" "$2" &
    others+=($!)
    for ((i = 0; i < 1000; ++i)); do
        [[ ! -e $folder/$1 ]] || return 0
        sleep 0.01
    done
    echo "no terminal" && exit 1
}
expect_rate() { # NAME BAUD
    expect "$2" "$(stty -F "$folder/$1" speed)"
}
others=()
trap 'kill "${others[@]}" 2>/dev/null || true; wait; rm -rf "$folder"' EXIT

open_line receiver "exec:$simulator --rate 50"
expect_rate receiver 4800
expect "9600 baud: good frames" "$("$example" "$folder/receiver" 9600 115200)"
expect_rate receiver 9600

mkfifo "$folder/silence"
open_line silent "open:$folder/silence"
open_line noisy "exec:$simulator --rate 50 --corrupt 1" # not one good checksum
for name in silent noisy; do
    "$example" "$folder/$name" 38400 >"$folder/output_of_$name" &
    listeners+=($!)
done
for listener in "${listeners[@]}"; do
    ! wait "$listener" || { echo "a receiver where none is" && exit 1; }
done
expect "38400 baud: nothing" "$(cat "$folder/output_of_silent")"
expect "38400 baud: noise" "$(cat "$folder/output_of_noisy")"
expect_rate silent 4800
expect_rate noisy 4800

expect_failure 1 "a line that is not there" "$example" "$folder/missing" 9600
expect_failure 1 "no line" "$example" /dev/null 9600
echo "found"
