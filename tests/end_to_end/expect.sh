# Sourced by the scripts beside it: a temporary folder, removed at their end, and comparisons.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

expect() { # EXPECTED TEXT
    diff <(echo "$1") <(echo "$2") || { echo "not as expected" && exit 1; }
}

expect_failure() { # STATUS WHAT COMMAND...: prints nothing on standard output, and a sanitizer finds nothing
    local status=0
    "${@:3}" >"$folder/printed" 2>"$folder/errors" || status=$?
    [[ $status == "$1" ]] || { echo "$2: status $status" && exit 1; }
    [[ ! -s $folder/printed ]] || { echo "$2 was reported as good: $(cat "$folder/printed")" && exit 1; }
    ! grep -E "Sanitizer|runtime error" "$folder/errors" || { echo "$2" && exit 1; }
}

flip() { # FILE OFFSET: inverts the lowest bit of one byte
    local -r byte=$(od -An -tu1 -j "$2" -N 1 "$1")
    printf "\\x$(printf %x $((byte ^ 1)))" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
