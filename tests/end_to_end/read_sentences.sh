#!/usr/bin/env bash
# usage: read_sentences.sh SIMULATOR MONITOR EXAMPLE
# The example prints the positions of all sentences of a simulated receiver, the same ones that the monitor shows.
set -euo pipefail
simulator=$1 monitor=$2 example=$3

receive() { "$simulator" --epochs 25 --rate 0 --seed 7 --nmea; }
positions=$(receive | "$example")
[[ $(wc -l <<<"$positions") -eq 25 ]] || { echo "not 25 positions: $positions" && exit 1; }

seen=$(receive | "$monitor" --format comma 2>/dev/null |
    awk -F, '$1 ~ /GGA/ { print $2, $3, $4 }')
diff <(echo "$positions") <(echo "$seen")
echo "25 positions, as the monitor shows them"
