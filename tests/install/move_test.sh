#!/bin/sh
# Installs a build under a prefix and moves the whole tree to another place, where the tool must run.
#
#     move_test.sh BUILD PREFIX PLACE [TOOL]
#
# TOOL is its path below the prefix.
#
# In the environment: CMAKE.
set -eu
unset DESTDIR LD_LIBRARY_PATH

build=$1
prefix=$2
place=$3

rm -rf "$prefix" "$place"
mkdir -p "$prefix"
if ! "$CMAKE" --install "$build" --prefix "$prefix" >"$prefix/log" 2>&1; then
    cat "$prefix/log" >&2
    exit 1
fi
rm "$prefix/log"
if grep -rlF -- "$prefix" "$prefix" >&2; then
    echo "these files name the prefix" >&2
    exit 1
fi
mv "$prefix" "$place"
if [ $# -gt 3 ]; then
    "$place/$4" version
fi
