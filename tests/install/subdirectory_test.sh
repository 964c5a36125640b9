#!/bin/sh
# Copies what the libraries are built from into another folder, and builds them there as a part of another project,
# whose program must run.
#
#     subdirectory_test.sh SOURCE PROJECT PROGRAM SETTINGS CONFIGURATION-FILE SCRATCH
#
# SETTINGS is read before the project: it sets the compilers and their flags. In the environment: CMAKE, GENERATOR, JOBS.
set -eu
export LC_ALL=C
unset LD_LIBRARY_PATH DESTDIR CFLAGS CXXFLAGS LDFLAGS

source=$1
project=$2
program=$3
settings=$4
example=$5
scratch=$6

rm -rf "$scratch"
mkdir -p "$scratch/another/place/for/veltor"
for part in CMakeLists.txt cmake include src; do
    cp -R "$source/$part" "$scratch/another/place/for/veltor/"
done

run() {
    if ! "$@" >"$scratch/log" 2>&1; then
        cat "$scratch/log" >&2
        exit 1
    fi
}
run "$CMAKE" -G "$GENERATOR" -S "$project" -B "$scratch/build" -C "$settings" \
    "-DVELTOR=$scratch/another/place/for/veltor" "-DPROGRAM=$program"
run "$CMAKE" --build "$scratch/build" --parallel "$JOBS"
# The other project installs what it wants.
run "$CMAKE" --install "$scratch/build" --prefix "$scratch/prefix"
if [ -e "$scratch/prefix" ]; then
    find "$scratch/prefix" >&2
    exit 1
fi

cp "$example" "$scratch/server.conf"
"$scratch/build/server" "$scratch/server.conf" secret-of-the-example >"$scratch/out"
printf 'port 389\nport 1389\n' | diff -u - "$scratch/out" >&2
