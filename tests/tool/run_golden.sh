#!/usr/bin/env bash
# Runs a program end to end on golden cases and compares byte by byte.
#
#     run_golden.sh BINARY CASES_DIR [CASE...]            compares
#     run_golden.sh --record BINARY CASES_DIR CASE...     writes what comes out into the cases, to be looked at
#
# A case is a folder named after the behaviour:
#     in.conf     the configuration; the command finds a copy of it under this name where it runs
#     any other file that is not named below
#                 found there as well, under its name
#     cmd         run by sh, with the program in the PATH, no terminal, an empty standard input and LC_ALL=C
#     out.txt, err.txt, exit
#                 what must come out, exactly
#     after.conf  what in.conf must hold afterwards; without it, in.conf must not even have been touched
set -euo pipefail

record=
if [ "${1-}" = --record ]; then
    record=1
    shift
fi
# No case is recorded that was not named.
if [ $# -lt $((record + 2)) ]; then
    echo "usage: $0 [--record] BINARY CASES_DIR [CASE...]" >&2
    exit 2
fi
program=$(realpath "$1")
cases=$(realpath "$2")
shift 2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
ln -s "$program" "$work/bin/"

# What must stay as it is when a file is only read. Access times are not part of it.
fingerprint() {
    if [ -e "$1" ]; then
        stat -c '%i %y %z %a %u:%g %s' "$1"
    fi
}

# Prints what differs; silent when the case holds.
run_case() {
    local folder=$1 place=$2 code=0 before file
    mkdir "$place"
    for file in "$folder"/*; do
        case ${file##*/} in
        cmd | out.txt | err.txt | exit | after.conf) ;;
        *) cp "$file" "$place/" ;;
        esac
    done
    before=$(fingerprint "$place/in.conf")
    (
        cd "$place"
        # A program that counts what it runs says there which counters it can't write.
        env -i PATH="$work/bin:/usr/bin:/bin" LC_ALL=C HOME="$place" \
            ${GCOV_ERROR_FILE+"GCOV_ERROR_FILE=$GCOV_ERROR_FILE"} \
            setsid --wait sh "$folder/cmd" </dev/null >"$work/out.txt" 2>"$work/err.txt"
    ) || code=$?
    echo "$code" >"$work/exit"
    if [ -n "$record" ]; then
        cp "$work/out.txt" "$work/err.txt" "$work/exit" "$folder/"
        rm -f "$folder/after.conf"
        if [ "$before" != "$(fingerprint "$place/in.conf")" ]; then
            cp "$place/in.conf" "$folder/after.conf"
        fi
    fi
    for result in out.txt err.txt exit; do
        diff -u --label "expected $result" --label "actual $result" "$folder/$result" "$work/$result" 2>&1 || true
    done
    if [ -e "$folder/after.conf" ]; then
        diff -u --label after.conf --label "actual in.conf" "$folder/after.conf" "$place/in.conf" 2>&1 || true
    elif [ "$before" != "$(fingerprint "$place/in.conf")" ]; then
        echo "in.conf was touched"
    fi
}

failed=0
count=0
if [ $# -eq 0 ]; then
    mapfile -t names < <(find "$cases" -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort)
else
    names=("$@")
fi
for name in "${names[@]}"; do
    count=$((count + 1))
    difference=$(run_case "$cases/$name" "$work/case-$count")
    if [ -n "$difference" ]; then
        failed=$((failed + 1))
        printf 'FAILED: %s\n%s\n\n' "$name" "$difference"
    fi
done
if [ "$count" -eq 0 ]; then
    echo "there is no case in $cases" >&2
    exit 1
fi
printf '%d of %d cases hold\n' "$((count - failed))" "$count"
[ "$failed" -eq 0 ]
