#!/usr/bin/env bash
# usage: calibration.sh EXAMPLE
# The example keeps values in a file of exactly this content, and accepts no damaged file.
. "$(dirname "$0")/expect.sh"
example=$1
file=$folder/machine

expect "" "$("$example" "$file")" # there is no file, and none is created
[[ ! -e $file ]]
expect "antenna_height 3150
wheelbase 2890" "$("$example" "$file" wheelbase=2890 antenna_height=3150)"
expect "antenna_height 3150
wheelbase 2890" "$("$example" "$file")"
diff <(printf 'calibration\nantenna_height 3150\nwheelbase 2890\n\nCRC32=3C9D9335') "$file"

expect "antenna_height 3150
roll -3
wheelbase 2895" "$("$example" "$file" wheelbase=2895 roll=-3)"
for argument in wheelbase =1 a=b=c "a b=1" $'a=1\nb'; do
    expect_failure 1 "$argument" "$example" "$file" "$argument"
done

# The file with the shortest content: each of its bytes is damaged in turn.
rm "$file"
"$example" "$file" a= >/dev/null
cp "$file" "$folder/good"
size=$(stat -c %s "$file")
ulimit -c 0
for ((i = 0; i < size; ++i)); do
    cp "$folder/good" "$file"
    flip "$file" "$i"
    status=1
    ((i != size - 15)) || status=134 # a damaged line feed before the checksum ends the process
    expect_failure "$status" "a file with byte $i damaged" "$example" "$file"
done
for ((i = 0; i < size; i += 3)); do
    head -c "$i" "$folder/good" >"$file"
    expect_failure 1 "a file of $i bytes" "$example" "$file" wheelbase=1
    cmp <(head -c "$i" "$folder/good") "$file"
done
[[ $(ls "$folder") == $'errors\ngood\nmachine\nprinted' ]] || { echo "a file is left over" && exit 1; }
cp "$folder/good" "$file"
expect "a " "$("$example" "$file")"
echo "kept, and all damage reported"
