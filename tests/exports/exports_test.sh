#!/bin/sh
# Compares what a built library shows to the dynamic linker with what is promised: the exported names with their
# versions, the SONAME, and the libraries that it needs.
#
#     exports_test.sh LIBRARY LIST SONAME [NEEDED...]
#
# LIST holds one exported name a line, C++ names as they are written: "name@@VERSION". A va_list, whose type is another
# one on each kind of machine, stands as "va_list". NEEDED are patterns for libraries beside those of the compilers.
set -eu
export LC_ALL=C

library=$1
list=$2
promised=$3
shift 3
failed=0

complain() {
    echo "$library: $1" >&2
    failed=1
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The version nodes themselves are absolute symbols (A).
nm -D -C --defined-only "$library" | sed -n '/^[0-9a-f]* A /d;s/^[0-9a-f]* [A-Za-z] //p' |
    sed 's/__va_list_tag\*/va_list/;s/std::__va_list/va_list/' | sort >"$folder/exported"
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
if [ "$soname" != "$promised" ]; then
    complain "the SONAME is '$soname', not $promised"
fi

# A sanitizer's runtime is there in builds that ask for it.
is_expected() {
    needed=$1
    shift
    for pattern in "$@" 'libstdc++.so.*' 'libgcc_s.so.*' 'libc.so.*' 'libm.so.*' 'ld-linux*.so.*' \
        'libasan.so.*' 'libubsan.so.*' 'libtsan.so.*'; do
        # shellcheck disable=SC2254
        case $needed in
        $pattern) return 0 ;;
        esac
    done
    return 1
}
for needed in $(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$folder/dynamic"); do
    is_expected "$needed" "$@" || complain "needs $needed"
done
if ! grep -q '(NEEDED)' "$folder/dynamic"; then
    complain "names no library that it needs"
fi
exit "$failed"
