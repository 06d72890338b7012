#!/usr/bin/env bash
# usage: tutorial.sh PROJECT PROGRAMS
# The tutorial shows each program as it is, and each of its commands prints what the page says. A line "..." of the page
# stands for any number of lines, "..." within a line for any text.
. "$(dirname "$0")/expect.sh"
project=$1
page=$project/docs/tutorial.md
export PATH=$2:$2/tutorial:$PATH
cd "$folder"

# Each code block of the page, in a file named after the path that precedes it.
awk '/^`examples\// { gsub(/`/, ""); source = $0 }
     /^```/ { if (inside) { inside = 0 } else if ($0 == "```cpp") { inside = 1 }; next }
     inside { file = source; gsub(/\//, ":", file); print > file }' "$page"
for shown in examples:*; do
    diff "$shown" "$project/${shown//://}"
done
[[ $(ls -- examples:* | wc -l) -eq $(ls "$project"/examples/tutorial/*.cpp | wc -l) ]]

# The console blocks: a command after "$ ", then the lines that it prints.
mapfile -t console < <(awk '/^```/ { inside = ($0 == "```console"); next } inside' "$page")
commands=0
as_pattern() { sed -e 's/[][\.*^$(){}?+|/]/\\&/g' -e 's/\\\.\\\.\\\./.*/g'; }
for ((i = 0; i < ${#console[@]};)); do
    command=${console[i]#\$ }
    expected=
    for ((++i; i < ${#console[@]}; ++i)); do
        [[ ${console[i]} == '$ '* ]] && break
        expected+=${console[i]}$'\n'
    done
    printed=$(bash -c "$command" 2>"$folder/errors" || true)
    pattern=$(printf '%s' "${expected%$'\n'}" | as_pattern | tr '\n' '\1')
    printf '%s\n' "$printed" | tr '\n' '\1' | grep -qE "^$pattern"$'\1$' || {
        printf '%s\nprinted:\n%s\nand not:\n%s' "$command" "$printed" "$expected"
        cat "$folder/errors"
        exit 1
    }
    commands=$((commands + 1))
done
echo "$commands commands print what the tutorial says"
