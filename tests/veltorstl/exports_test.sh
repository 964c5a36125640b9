#!/bin/sh
# Compares what a built library shows to the dynamic linker with what is promised: the exported names with their
# versions, the SONAME, and the libraries that it needs.
#
#     exports_test.sh LIBRARY LIST
#
# LIST holds one exported name a line, as nm prints it: "name@@VERSION".
set -eu
export LC_ALL=C

library=$1
list=$2
failed=0

complain() {
    echo "$library: $1" >&2
    failed=1
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The version nodes themselves are absolute symbols (A).
nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort >"$folder/exported"
sort "$list" >"$folder/promised"
if ! diff -u "$folder/promised" "$folder/exported" >"$folder/diff"; then
    complain "the exported names differ from $list:"
    cat "$folder/diff" >&2
fi
if ! [ -s "$folder/promised" ]; then
    complain "$list is empty"
fi

readelf -d -W "$library" >"$folder/dynamic"
soname=$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' "$folder/dynamic")
if [ "$soname" != libveltorstl.so.1 ]; then
    complain "the SONAME is '$soname', not libveltorstl.so.1"
fi

# A sanitizer's runtime is there in builds that ask for it.
for needed in $(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$folder/dynamic"); do
    case $needed in
    libldap[-.]*so* | liblber[-.]*so* | libveltorplatform.so.*) ;;
    libstdc++.so.* | libgcc_s.so.* | libc.so.* | libm.so.* | ld-linux*.so.*) ;;
    libasan.so.* | libubsan.so.* | libtsan.so.*) ;;
    *) complain "needs $needed" ;;
    esac
done
if ! grep -q '(NEEDED)' "$folder/dynamic"; then
    complain "names no library that it needs"
fi
exit "$failed"
