#!/usr/bin/env bash
# usage: external_platform.sh SOURCE BUILD BUILD_TYPE SANITIZERS TOOLCHAIN LDD...
# Installs the reference platform as a maker's package, builds the library alone against it, installs that too, and finds both
# from a program's project by version.
set -euo pipefail
source=$1 build=$2 build_type=$3 sanitizers=$4 toolchain=$5
shift 5 # the remaining arguments list the shared libraries that a file needs

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

configure() { # SOURCE BUILD OPTIONS...
    cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} \
        -DCMAKE_PREFIX_PATH="$folder/maker;$folder/glue" "${@:3}"
}

cmake --install "$build" --component platform --prefix "$folder/maker" >/dev/null
[[ ! -e $folder/maker/include/glue ]] || { echo "the platform's package contains the library's headers" && exit 1; }

configure "$source" "$folder/build" -DGLUE_SANITIZE="$sanitizers" -DGLUE_PLATFORM=external -DGLUE_BUILD_PROGRAMS=OFF \
    -DGLUE_BUILD_TESTS=OFF >/dev/null
cmake --build "$folder/build" >/dev/null
cmake --install "$folder/build" --prefix "$folder/glue" >/dev/null

library=$(find "$folder/glue" -name 'libglue.so')
[[ -n $library ]] || { echo "no library was installed" && exit 1; }
LD_LIBRARY_PATH=$(dirname "$(find "$folder/maker" -name 'libglue_platform.so.0')") "$@" "$library" |
    grep -F "$folder/maker" || { echo "the library does not use the installed platform" && exit 1; }

# An application's project asks for a version: 0.1 is there, 0.2 and 1.0 are not.
mkdir "$folder/application"
cat >"$folder/application/CMakeLists.txt" <<'PROJECT'
cmake_minimum_required(VERSION 3.25)
project(application LANGUAGES CXX)
find_package(glue_platform ${VERSION} REQUIRED)
find_package(glue ${VERSION} REQUIRED)
add_executable(application main.cpp)
target_link_libraries(application PRIVATE glue::glue)
PROJECT
cat >"$folder/application/main.cpp" <<'PROGRAM'
#include <glue/data_stream/Loopback_data_stream.h>

int main() {
    Loopback_data_stream stream;
    return 0;
}
PROGRAM
configure "$folder/application" "$folder/application/build" -DVERSION=0.1 >/dev/null
cmake --build "$folder/application/build" >/dev/null
for version in 0.2 1.0; do
    ! configure "$folder/application" "$folder/application/build_$version" -DVERSION="$version" >"$folder/output" 2>&1 ||
        { echo "version $version was found" && exit 1; }
    tr -s ' \n' ' ' <"$folder/output" | grep -qF "compatible with requested version \"$version\"" || { cat "$folder/output" && exit 1; }
done
