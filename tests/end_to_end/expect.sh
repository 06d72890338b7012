# What the scripts beside this one share, to be sourced: a folder of their own that goes with them, and comparisons.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

expect() { # EXPECTED TEXT
    diff <(echo "$1") <(echo "$2") || { echo "not as expected" && exit 1; }
}

expect_failure() { # STATUS WHAT COMMAND...: nothing on standard output, and nothing that a sanitizer has found
    local status=0
    "${@:3}" >"$folder/said" 2>"$folder/complained" || status=$?
    [[ $status == "$1" ]] || { echo "$2: status $status" && exit 1; }
    [[ ! -s $folder/said ]] || { echo "$2 was told as good: $(cat "$folder/said")" && exit 1; }
    ! grep -E "Sanitizer|runtime error" "$folder/complained" || { echo "$2" && exit 1; }
}

flip() { # FILE OFFSET: turns the lowest bit of one byte over
    local -r byte=$(od -An -tu1 -j "$2" -N 1 "$1")
    printf "\\x$(printf %x $((byte ^ 1)))" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
