#!/bin/sh
# Compares libraries with those of the same names that were built from the same sources in another folder, byte by byte.
#
#     same_bytes_test.sh OTHER-FOLDER LIBRARY...
set -eu

other=$1
shift
[ $# -gt 0 ]
failed=0
for library; do
    cmp "$library" "$other/${library##*/}" || failed=1
done
exit "$failed"
