#!/usr/bin/env bash
# usage: change_setting.sh EXAMPLE
# The example changes the one value that it is told to, tells what it was, and leaves the rest as it is.
set -euo pipefail
example=$1
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
file=$folder/unit.ini

printf '# of the unit\nlanguage=en\n\n[display]\nbrightness=70\nname=front "left"\nempty=\n\n[other]\nbrightness=5\n' >"$file"
expected=$(sed 's/^brightness=70$/brightness=80/' "$file")
said=$("$example" "$file" display brightness 80)
[[ $said == "brightness was 70" ]] || { echo "it said: $said" && exit 1; }
diff <(echo "$expected") "$file"

# What is no setting, white space, long lines, another section's key of the same name, an open end
long=$(printf 'y%.0s' {1..5000})
printf 'a line of words\n\n\n  # indented\n[display]\n\nk = 1\nlong=%s\n  x  =  y \n[other]\nk = 1\nlast=3' "$long" >"$file"
expected=$(sed '7s/.*/k=7/' "$file" && echo .)
[[ $("$example" "$file" display k 7) == "k was 1" ]]
diff <(echo "$expected") <(cat "$file" && echo .)
printf 'k=1\r\nl=2\r' >"$file"
"$example" "$file" "" l 3 >/dev/null
diff <(printf 'k=1\nl=3\n') "$file"

# A disk that is full
before=$(cat "$file" && echo .)
(
    ulimit -f 1 && trap '' XFSZ
    ! "$example" "$file" "" l "$long" >/dev/null 2>&1 || { echo "overlooked a full disk" && exit 1; }
)
diff <(echo "$before") <(cat "$file" && echo .)

before=$(cat "$file")
! "$example" "$file" display contrast 1 2>/dev/null || { echo "changed a key that is not there" && exit 1; }
! "$example" "$folder/missing.ini" display contrast 1 2>/dev/null || { echo "changed a missing file" && exit 1; }
diff <(echo "$before") "$file"
[[ $(ls "$folder") == unit.ini ]] || { echo "left something behind" && exit 1; }
echo "one value changed, the rest as it was"
