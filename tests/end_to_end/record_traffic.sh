#!/usr/bin/env bash
# usage: record_traffic.sh SIMULATOR EXAMPLE
# The example records a damaged link from before the damage on, byte for byte, and an undamaged one not at all.
set -euo pipefail
simulator=$1 example=$2
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
mkdir "$folder/logs"

"$simulator" --rate 0 --epochs 200 --seed 4 >"$folder/good"
said=$("$example" "$folder/logs" <"$folder/good")
[[ -z $said && -z $(ls "$folder/logs") ]] || { echo "recorded without need: $said" && exit 1; }

# The first damaged frame comes when a good part of the traffic has gone by.
"$simulator" --rate 0 --epochs 200 --seed 4 --corrupt 0.001 >"$folder/damaged"
cmp -s -n 2000 "$folder/good" "$folder/damaged" || { echo "damage from the beginning on" && exit 1; }
said=$("$example" "$folder/logs" <"$folder/damaged")
cmp "$folder/damaged" "$folder"/logs/receiver_raw_*.log
[[ $said == *": $(stat -c %s "$folder/damaged") bytes, 0 dropped" ]] || { echo "it said: $said" && exit 1; }
echo "all of the traffic is in the file"
