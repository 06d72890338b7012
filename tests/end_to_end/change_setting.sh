#!/usr/bin/env bash
# usage: change_setting.sh EXAMPLE
# The example changes the given value, prints the old one, and leaves everything else unchanged.
set -euo pipefail
example=$1
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
file=$folder/unit.ini

printf '# of the unit\nlanguage=en\n\n[display]\nbrightness=70\nname=front "left"\nempty=\n\n[other]\nbrightness=5\n' >"$file"
expected=$(sed 's/^brightness=70$/brightness=80/' "$file")
output=$("$example" "$file" display brightness 80)
[[ $output == "brightness was 70" ]] || { echo "it printed: $output" && exit 1; }
diff <(echo "$expected") "$file"

# Lines that are no settings, white space, a long line, a key of the same name in another section, no line end at the end
long=$(printf 'y%.0s' {1..5000})
printf 'a line of words\n\n\n  # indented\n[display]\n\nk = 1\nlong=%s\n  x  =  y \n[other]\nk = 1\nlast=3' "$long" >"$file"
expected=$(sed '7s/.*/k=7/' "$file" && echo .)
[[ $("$example" "$file" display k 7) == "k was 1" ]]
diff <(echo "$expected") <(cat "$file" && echo .)

# Every line keeps its line end, the changed one too.
expect_change() { # BEFORE AFTER KEY VALUE
    printf "$1" >"$file"
    "$example" "$file" "" "$3" "$4" >/dev/null
    cmp <(printf "$2") "$file" || { od -c "$file" | head && exit 1; }
}
expect_change 'k=1\r\nl=2\r\n\r\n# end\r\n' 'k=1\r\nl=3\r\n\r\n# end\r\n' l 3
expect_change 'a=1\nb=2\r\nc=3\rd=4\n\re=5' 'a=1\nb=2\r\nc=7\rd=4\n\re=5' c 7
expect_change 'k=1\r\nl=2' 'k=1\r\nl=3' l 3
expect_change 'k=1\r\nl=2\r' 'k=1\r\nl=3\r' l 3
expect_change "k=1\r\nl=$long\r\nm=$long\r\n" "k=1\r\nl=3\r\nm=$long\r\n" l 3 # no piece of the old value is left
at_the_cut=$(printf 'y%.0s' {1..4195}) # with "l=" as long as a line that is read whole
expect_change "l=$at_the_cut\r\nm=2\r\n" "l=$at_the_cut\r\nm=3\r\n" m 3

# A disk that is full
before=$(cat "$file" && echo .)
(
    ulimit -f 1 && trap '' XFSZ
    ! "$example" "$file" "" m "$long" >/dev/null 2>&1 || { echo "overlooked a full disk" && exit 1; }
)
diff <(echo "$before") <(cat "$file" && echo .)

before=$(cat "$file")
! "$example" "$file" display contrast 1 2>/dev/null || { echo "changed a key that is not there" && exit 1; }
! "$example" "$folder/missing.ini" display contrast 1 2>/dev/null || { echo "changed a missing file" && exit 1; }
diff <(echo "$before") "$file"
[[ $(ls "$folder") == unit.ini ]] || { echo "a file is left over" && exit 1; }
echo "one value changed, the rest unchanged"
