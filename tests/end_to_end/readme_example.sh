#!/usr/bin/env bash
# usage: readme_example.sh README EXAMPLE
# The program in the README is the example, character for character.
set -euo pipefail
readme=$1 example=$2

diff <(sed -n '/^```cpp$/,/^```$/p' "$readme" | sed '1d;$d') "$example"
echo "the README shows $(basename "$example")"
