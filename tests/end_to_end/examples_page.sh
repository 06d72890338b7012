#!/usr/bin/env bash
# usage: examples_page.sh PROJECT
# The page names a program for each exported class: no class is missing, each class exists, and the program's sources
# name the class, unless the page names what it is used through. The page lists every example.
. "$(dirname "$0")/expect.sh"
cd "$1"

# Nested classes are exported with "class GLUE_EXPORT", too; the page names them after the class around them.
grep -rhoE '(class|struct) GLUE_EXPORT [A-Za-z0-9_]+' include | awk '{print $3}' | sort >"$folder/exported"

# A line for each class: class, program, what it is used through.
sed -n '/^## Where each class is at work/,$p' examples/README.md |
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

sed -n '/^| example/,/^$/p' examples/README.md | sed -nE 's/^[|] `([a-z_]+)` .*/\1/p' | sort >"$folder/examples"
ls examples/*.cpp | sed 's/.*\///; s/\.cpp$//' | sort | diff - "$folder/examples"
