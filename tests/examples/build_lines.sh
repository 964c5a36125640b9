#!/usr/bin/env bash
# Installs what was built, and builds the examples against it with the very lines that they and the README give.
#
#     build_lines.sh BUILD_FOLDER README
set -euo pipefail
build=$1
readme=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
libraries=$(dirname "$(find "$work/prefix" -name 'libveltorstl.so')")
export PKG_CONFIG_PATH="$libraries/pkgconfig" LD_LIBRARY_PATH="$libraries"
# The files name the prefix that was configured.
mkdir "$work/bin"
printf '#!/bin/sh\nexec %q --define-variable=prefix=%q "$@"\n' "$(command -v pkg-config)" "$work/prefix" \
    >"$work/bin/pkg-config"
chmod +x "$work/bin/pkg-config"
PATH="$work/bin:$PATH"
cp -r "$(find "$work/prefix" -type d -name examples)" "$work/examples"

# Runs the lines of a file that begin with a compiler, in a folder.
built=0
run_lines() {
    local line
    while read -r line; do
        (cd "$2" && sh -c "$line") || { echo "failed: $line" >&2 && exit 1; }
        built=$((built + 1))
    done < <(sed -nE 's/^( \*)? +((cc|c\+\+) -std=.*)$/\2/p' "$1")
}
for source in "$work"/examples/*.c*; do
    case $source in
    *.c | *.cpp) run_lines "$source" "$work/examples" ;;
    esac
done
run_lines "$readme" "$work"

cd "$work"
for program in examples/search examples/change examples/report examples/server example_search; do
    "./$program" 2>"$program.err" && { echo "$program knows no usage" >&2 && exit 1; }
    grep -q '^usage: ' "$program.err" || { cat "$program.err" >&2 && exit 1; }
done
./example_search examples/zorslapd.conf 'zor-slapdPort=389' | grep -qx '# 1 entries'
echo "$built lines"
[ "$built" -eq 5 ]
