#!/bin/sh
# Builds the programs of a project against the installed libraries, and runs them.
#
#     consumer_test.sh find_package|pkg-config INSTALLED PROJECT CONFIGURATION-FILE SCRATCH
#
# In the environment: CMAKE, GENERATOR, CC, CXX, PKG_CONFIG. PKG_CONFIG_PATH or CMAKE_PREFIX_PATH leads to the installed
# files, and nothing else does: no program is told at its start where its libraries are.
set -eu
export LC_ALL=C
unset LD_LIBRARY_PATH CFLAGS CXXFLAGS LDFLAGS

way=$1
installed=$2
project=$3
example=$4
scratch=$5
warnings="-Wall -Wextra -Wpedantic -Werror"

rm -rf "$scratch"
mkdir -p "$scratch"

case $way in
find_package)
    if ! "$CMAKE" -G "$GENERATOR" -S "$project" -B "$scratch" "-DCMAKE_PREFIX_PATH=$installed" \
        "-DCMAKE_C_COMPILER=$CC" "-DCMAKE_CXX_COMPILER=$CXX" "-DCMAKE_C_FLAGS=-std=c99 $warnings" \
        "-DCMAKE_CXX_FLAGS=-std=c++11 $warnings" >"$scratch/log" 2>&1 ||
        ! "$CMAKE" --build "$scratch" >>"$scratch/log" 2>&1; then
        cat "$scratch/log" >&2
        exit 1
    fi
    ;;
pkg-config)
    flags() {
        "$PKG_CONFIG" "$@"
    }
    PKG_CONFIG_PATH=$(find "$installed" -type d -name pkgconfig)
    export PKG_CONFIG_PATH
    # The words of the flags are words of the command.
    # shellcheck disable=SC2046,SC2086
    "$CC" -std=c99 $warnings -o "$scratch/change_port" "$project/change_port.c" $(flags --cflags --libs veltorstl) \
        "-Wl,-rpath,$(flags --variable=libdir veltorstl)"
    # shellcheck disable=SC2046,SC2086
    "$CXX" -std=c++11 $warnings -o "$scratch/trace_types" "$project/trace_types.cpp" \
        $(flags --cflags --libs veltorstl ldtr veltorplatform) "-Wl,-rpath,$(flags --variable=libdir ldtr)"
    ;;
*)
    echo "$0: unknown way '$way'" >&2
    exit 2
    ;;
esac

cp "$example" "$scratch/server.conf"
"$scratch/change_port" "$scratch/server.conf" secret-of-the-example >"$scratch/out"
VELTOR_TRACE_FILE=$scratch/trace VELTOR_TRACE_EVENTS=0x10 "$scratch/trace_types" >>"$scratch/out"
grep -c '^030A0000 C8010000 .* zor-slapdPort' "$scratch/trace" >>"$scratch/out" || true
grep '^zor-slapdPort:' "$scratch/server.conf" >>"$scratch/out"
cat >"$scratch/expected" <<EOF
port 389
port 1389
115 types, events 16
1
zor-slapdPort: 1389
EOF
diff -u "$scratch/expected" "$scratch/out" >&2

# What was run, used the installed libraries.
for program in change_port trace_types; do
    ldd "$scratch/$program" | sed -n 's/.*\(libveltor[^ ]*\|libldtr[^ ]*\) => \([^ ]*\).*/\1 \2/p' >"$scratch/loaded"
    while read -r name path; do
        [ "$(realpath "$path")" = "$(realpath "$(find "$installed" -name "$name")")" ] || {
            echo "$program runs with $path" >&2
            exit 1
        }
    done <"$scratch/loaded"
    [ -s "$scratch/loaded" ]
done
