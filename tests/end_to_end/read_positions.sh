#!/usr/bin/env bash
# usage: read_positions.sh SIMULATOR MONITOR EXAMPLE
# The example prints every position of a simulated receiver, the same positions as the monitor.
set -euo pipefail
simulator=$1 monitor=$2 example=$3

receive() { "$simulator" --epochs 25 --rate 0 --seed 7; }
positions=$(receive | "$example")
[[ $(wc -l <<<"$positions") -eq 25 ]] || { echo "not 25 positions: $positions" && exit 1; }

# The monitor prints three more digits; rounded as in the example, both are the same figures.
seen=$(receive | "$monitor" --format comma 2>/dev/null |
    awk -F, '$1 ~ /PG/ { printf "%.7f %.7f %.3f\n", $2, $3, $4 }')
diff <(echo "$positions") <(echo "$seen")
echo "25 positions, as the monitor shows them"
