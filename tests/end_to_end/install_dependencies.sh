#!/usr/bin/env bash
# usage: install_dependencies.sh SOURCE
# With everything there the script is silent and needs no apt-get; with something missing and no way to install it, it
# says so.
set -euo pipefail
script=$1/scripts/install_dependencies
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
    echo "$1" >&2
    exit 1
}
# In place of a link, never through it: root would write to the machine's own tool.
tool() { rm -f "$folder/$1" && printf '#!/bin/sh\n%s\n' "$2" >"$folder/$1" && chmod +x "$folder/$1"; }

# A machine without apt-get and sudo, on which dpkg-query answers as told.
for name in bash env id; do ln -s "$(command -v $name)" "$folder/$name"; done
tool dpkg-query 'echo installed'
output=$(PATH=$folder "$script" 2>&1) || fail "failed with everything there: $output"
[[ -z $output ]] || fail "not silent with everything there: $output"

tool dpkg-query 'case "$*" in *ninja-build*) exit 1;; *) echo installed;; esac'
if output=$(PATH=$folder "$script" 2>&1); then fail "no complaint about a missing package"; fi
[[ $output == *"no apt-get"*": ninja-build" ]] || fail "unclear: $output"

# With apt-get, as root: only what is missing is asked for.
ln -s "$(command -v cat)" "$folder/cat"
tool apt-get "echo \"\$*\" >>'$folder/asked'"
tool id 'echo 0'
output=$(PATH=$folder "$script" 2>&1) || fail "failed to install: $output"
asked=$(cat "$folder/asked")
[[ $asked == *"install "*" ninja-build" ]] || fail "asked apt-get for: $asked"

# What only some need is asked for only when they say so.
tool dpkg-query 'case "$*" in *clang*) exit 1;; *) echo installed;; esac'
output=$(PATH=$folder "$script" 2>&1) || fail "failed with all that everybody needs there: $output"
[[ -z $output ]] || fail "asks everybody for clang: $output"
for asking in "--fuzz: clang-14 libclang-rt-14-dev" "--lint: clang-format-14 clang-tidy-14" \
    "--lint --fuzz: clang-format-14 clang-tidy-14 clang-14 libclang-rt-14-dev"; do
    rm -f "$folder/asked"
    # shellcheck disable=SC2086 # the options are words of their own
    output=$(PATH=$folder "$script" ${asking%%:*} 2>&1) || fail "failed to install for $asking: $output"
    asked=$(cat "$folder/asked")
    [[ $asked == *"install "*"recommends${asking#*:}" ]] || fail "asked apt-get for: $asked"
done
if output=$(PATH=$folder "$script" --other 2>&1); then fail "takes any option"; fi
[[ $output == usage:* ]] || fail "unclear: $output"
tool dpkg-query 'case "$*" in *ninja-build*) exit 1;; *) echo installed;; esac'

# Not root and no sudo: a clear message.
tool id 'echo 1000'
if output=$(PATH=$folder "$script" 2>&1); then fail "no complaint without root and sudo"; fi
[[ $output == *"As root: apt-get install ninja-build"* ]] || fail "unclear: $output"
echo "the list is checked offline, and what is missing is named"
