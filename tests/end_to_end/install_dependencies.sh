#!/usr/bin/env bash
# usage: install_dependencies.sh SOURCE
# When no package is missing, the script prints nothing and needs no apt-get. When one is missing and cannot be installed, the
# script names it.
set -euo pipefail
script=$1/scripts/install_dependencies
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
    echo "$1" >&2
    exit 1
}
# Replaces a link, never writes through it: root would overwrite the machine's own tool.
tool() { rm -f "$folder/$1" && printf '#!/bin/sh\n%s\n' "$2" >"$folder/$1" && chmod +x "$folder/$1"; }

# A machine without apt-get and sudo. Its dpkg-query prints what the test sets.
for name in bash env id; do ln -s "$(command -v $name)" "$folder/$name"; done
tool dpkg-query 'echo installed'
output=$(PATH=$folder "$script" 2>&1) || fail "failed with everything there: $output"
[[ -z $output ]] || fail "not silent with everything there: $output"

tool dpkg-query 'case "$*" in *ninja-build*) exit 1;; *) echo installed;; esac'
if output=$(PATH=$folder "$script" 2>&1); then fail "no complaint about a missing package"; fi
[[ $output == *"no apt-get"*": ninja-build" ]] || fail "unclear: $output"

# With apt-get, as root: only what is missing is installed.
ln -s "$(command -v cat)" "$folder/cat"
tool apt-get "echo \"\$*\" >>'$folder/asked'"
tool id 'echo 0'
output=$(PATH=$folder "$script" 2>&1) || fail "failed to install: $output"
asked=$(cat "$folder/asked")
[[ $asked == *"install "*" ninja-build" ]] || fail "asked apt-get for: $asked"

# The packages of a group are installed only when the group is named.
tool dpkg-query 'case "$*" in *clang*|*gtest*|*locales*|*socat*) exit 1;; *) echo installed;; esac'
output=$(PATH=$folder "$script" base docs 2>&1) || fail "failed when nothing of the groups is missing: $output"
[[ -z $output ]] || fail "installs packages of other groups: $output"
for installing in "fuzz: clang-14 libclang-rt-14-dev" "lint: clang-format-14 clang-tidy-14" "tour: socat" \
    "base tests: libgtest-dev socat locales" ": libgtest-dev socat locales" \
    "lint fuzz: clang-format-14 clang-tidy-14 clang-14 libclang-rt-14-dev"; do
    rm -f "$folder/asked"
    # shellcheck disable=SC2086 # the groups are separate words
    output=$(PATH=$folder "$script" ${installing%%:*} 2>&1) || fail "failed to install for $installing: $output"
    asked=$(cat "$folder/asked")
    [[ $asked == *"install "*"recommends${installing#*:}" ]] || fail "asked apt-get for: $asked"
done
if output=$(PATH=$folder "$script" other 2>&1); then fail "accepts any group"; fi
[[ $output == usage:* ]] || fail "unclear: $output"
tool dpkg-query 'case "$*" in *ninja-build*) exit 1;; *) echo installed;; esac'

# Not root and no sudo: a clear message.
tool id 'echo 1000'
if output=$(PATH=$folder "$script" 2>&1); then fail "no complaint without root and sudo"; fi
[[ $output == *"As root: apt-get install ninja-build"* ]] || fail "unclear: $output"
echo "the list is checked offline, and what is missing is named"
