#!/usr/bin/env bash
# usage: record_traffic.sh SIMULATOR EXAMPLE
# The example records a damaged link byte for byte, beginning before the damage. It does not record an undamaged link.
set -euo pipefail
simulator=$1 example=$2
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
mkdir "$folder/logs"

"$simulator" --rate 0 --epochs 200 --seed 4 >"$folder/good"
output=$("$example" "$folder/logs" <"$folder/good")
[[ -z $output && -z $(ls "$folder/logs") ]] || { echo "recorded an undamaged link: $output" && exit 1; }

# The first damaged frame is not near the beginning.
"$simulator" --rate 0 --epochs 200 --seed 4 --corrupt 0.001 >"$folder/damaged"
cmp -s -n 2000 "$folder/good" "$folder/damaged" || { echo "the damage is at the beginning" && exit 1; }
output=$("$example" "$folder/logs" <"$folder/damaged")
cmp "$folder/damaged" "$folder"/logs/receiver_raw_*.log
[[ $output == *": $(stat -c %s "$folder/damaged") bytes, 0 dropped" ]] || { echo "it printed: $output" && exit 1; }
echo "all of the traffic is in the file"
