# What the scripts beside this one share, to be sourced: a folder of their own that goes with them, and comparisons.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

expect() { # EXPECTED TEXT
    diff <(echo "$1") <(echo "$2") || { echo "not as expected" && exit 1; }
}

expect_failure() { # WHAT COMMAND...
    ! "${@:2}" >"$folder/said" 2>/dev/null || { echo "$1 went through" && exit 1; }
    [[ ! -s $folder/said ]] || { echo "$1 was told as good: $(cat "$folder/said")" && exit 1; }
}

flip() { # FILE OFFSET: turns the lowest bit of one byte over
    local -r byte=$(od -An -tu1 -j "$2" -N 1 "$1")
    printf "\\x$(printf %x $((byte ^ 1)))" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
