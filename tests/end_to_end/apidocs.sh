#!/usr/bin/env bash
# usage: apidocs.sh SOURCE
# The API reference is built without a warning. It has every class and function that the library exports, and every header,
# class and struct of the platform.
source "$(dirname "$0")/expect.sh"
cd "$1"

./apidocs "$folder/reference"
[[ -s $folder/reference/html/index.html ]] || { echo "no start page" && exit 1; }

# The names in the index, without the namespaces and classes around them.
sed -nE 's/.*<name>(.*)<\/name>.*/\1/p' "$folder/reference/xml/index.xml" | sed -E 's/<.*//; s/&lt;.*//; s/.*:://' |
    sort -u >"$folder/documented"

# "class GLUE_EXPORT Name", and "GLUE_EXPORT type name(".
exported=$(grep -rhE '\bGLUE_EXPORT\b' include/glue --include='*.h' | grep -vE '^#|^ *//' |
    sed -nE 's/.*(class|struct) GLUE_EXPORT ([A-Za-z0-9_]+).*/\2/p; t; s/[^(]*GLUE_EXPORT [^(]*[ *&](operator[^(]*|[A-Za-z0-9_]+)\(.*/\1/p')
platform=$(sed -nE 's/^(class|struct) ([A-Za-z0-9_]+)( final)?( :.*)?( \{.*)?$/\2/p' platform/include/platform/*.h)
headers=$(cd platform/include/platform && ls -- *.h)
[[ $(wc -w <<<"$exported") -ge 80 && $(wc -w <<<"$platform") -ge 20 ]] || { echo "too few names found in the headers" && exit 1; }

missing=$(printf '%s\n' $exported $platform $headers | sort -u | comm -23 - "$folder/documented")
[[ -z $missing ]] || { printf 'not in the reference:\n%s\n' "$missing" && exit 1; }
echo "$(wc -w <<<"$exported") exported names, $(wc -w <<<"$headers") headers of the platform"
