#!/usr/bin/env bash
# usage: platform_page.sh SOURCE
# Every header of the platform layer that the library includes has its place on the page that a maker works from.
set -euo pipefail
cd "$1"

missing=$(grep -rhoE '<platform/[A-Za-z_]+\.h>' glue include | sort -u | while read -r header; do
    grep -qF "\`$header\`" docs/platform.md || echo "$header"
done)
[[ -z $missing ]] || { echo "docs/platform.md does not have:" && echo "$missing" && exit 1; }
