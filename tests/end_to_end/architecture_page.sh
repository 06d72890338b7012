#!/usr/bin/env bash
# usage: architecture_page.sh PROJECT
# The page names for each exported class a program that uses it: no class is missing, none is gone, and each program's
# sources name the class where the page does not say what it is used through.
. "$(dirname "$0")/expect.sh"
cd "$1"

# Nested classes are exported with "class GLUE_EXPORT", too; the page names them behind the class around them.
grep -rhoE '(class|struct) GLUE_EXPORT [A-Za-z0-9_]+' include | awk '{print $3}' | sort >"$folder/exported"

# A line for each class: class, program, what it is used through.
sed -n '/^## Where each class is at work/,/^## Threads/p' docs/architecture.md |
    awk -F ' *[|] *' '/^[|] `/ {
        count = split($2, classes, /, */)
        for (i = 1; i <= count; i++) { gsub(/`/, "", classes[i]); gsub(/`/, "", $3); print classes[i] "\t" $3 "\t" $4 }
    }' >"$folder/listed"

cut -f 1 "$folder/listed" | sed 's/.*:://' | sort | diff "$folder/exported" - || { echo "classes differ" && exit 1; }

# The sources of a program: its own, and those that it includes of its folders or beside it.
sources_of() {
    local file=tools/$1.cpp
    [[ -f $file ]] || file=examples/$1.cpp
    [[ -f $file ]] || { echo "there is no program $1" >&2 && return 1; }
    echo "$file"
    sed -nE 's/^#include "([a-z]+)\/.*/tools\/\1/p; s/^#include "([^/]+)"/examples\/\1/p' "$file" | sort -u
}

while IFS=$'\t' read -r class program through; do
    sources=$(sources_of "$program")
    [[ -n $through ]] || grep -rqE "\b${class##*::}\b" $sources || { echo "$program does not name $class" && exit 1; }
done <"$folder/listed"
echo "$(wc -l <"$folder/listed") classes at work"
