#!/usr/bin/env bash
# usage: platform_page.sh SOURCE
# The page that a maker works from has every header of the platform layer that the library includes, each in one step of the order
# in which to port; and the tests that a step names exist.
set -euo pipefail
cd "$1"
failed=0
complain() { echo "docs/platform.md: $*" && failed=1; }

steps=$(grep -E '^\| [0-9]+ \|' docs/platform.md)
for header in $(grep -rhoE '<platform/[A-Za-z_]+\.h>' glue include | sort -u); do
    grep -qE "^## .*\`$header\`" docs/platform.md || complain "no section for $header"
    [[ $(grep -cF "\`$header\`" <<<"$steps") == 1 ]] || complain "$header is not in exactly one step"
done

while read -r program filter; do
    folder=tests/${program%_tests}
    [[ -d $folder ]] || complain "no tests for $program"
    for pattern in ${filter//:/ }; do
        [[ $pattern == *\* ]] || complain "$pattern has no *"
        prefix=${pattern%\*}
        grep -rqE "(TEST(_F|_P)?|TYPED_TEST_SUITE)\(${prefix%.}" "$folder" || complain "$program has no tests $pattern"
    done
done < <(grep -oE '`[A-Za-z_]+_tests[^`]*`' <<<"$steps" | tr -d '`')
exit $failed
