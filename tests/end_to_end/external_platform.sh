#!/usr/bin/env bash
# usage: external_platform.sh SOURCE BUILD BUILD_TYPE SANITIZERS TOOLCHAIN LDD...
# Installs the reference platform as if it came from somebody else, and builds the library alone against it.
set -euo pipefail
source=$1 build=$2 build_type=$3 sanitizers=$4 toolchain=$5
shift 5 # what is left lists the shared libraries that a file takes

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

cmake --install "$build" --component platform --prefix "$folder/maker" >/dev/null
[[ ! -e $folder/maker/include/glue ]] || { echo "the platform's package brings the library's headers" && exit 1; }

cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" -DGLUE_SANITIZE="$sanitizers" \
    ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} -DGLUE_PLATFORM=external \
    -DCMAKE_PREFIX_PATH="$folder/maker" -DGLUE_BUILD_PROGRAMS=OFF >/dev/null
cmake --build "$folder/build" >/dev/null
cmake --install "$folder/build" --prefix "$folder/glue" >/dev/null

library=$(find "$folder/glue" -name 'libglue.so')
[[ -n $library ]] || { echo "no library was installed" && exit 1; }
LD_LIBRARY_PATH=$(dirname "$(find "$folder/maker" -name 'libglue_platform.so.0')") "$@" "$library" |
    grep -F "$folder/maker" || { echo "the library does not use the installed platform" && exit 1; }
