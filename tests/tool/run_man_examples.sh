#!/usr/bin/env bash
# Runs the examples of a manual page on the example configuration: in each literal block, a line that begins with
# "$ " is a command and what follows is its output, standard error included. What "$ cat FILE" shows is the
# content of a file for the commands behind it.
#
#     run_man_examples.sh VELTOR_BINARY MAN_PAGE EXAMPLES_DIR
set -euo pipefail

if [ $# -ne 3 ]; then
    echo "usage: $0 VELTOR_BINARY MAN_PAGE EXAMPLES_DIR" >&2
    exit 2
fi
veltor=$(realpath "$1")
page=$(realpath "$2")
examples=$(realpath "$3")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/place"
ln -s "$veltor" "$work/bin/veltor"
cp "$examples/zorslapd.conf" "$work/place/"
(umask 077 && echo secret-of-the-example >"$work/place/password")
cd "$work/place"

failed=0
count=0

# Runs a command and compares it with the output that the page promises. Both may end in empty lines.
check() {
    local command=$1 expected actual
    expected=$(printf '%s' "$2")
    if [[ $command == 'cat '* && ! -e ${command#cat } ]]; then
        printf '%s\n' "$expected" >"${command#cat }"
    fi
    count=$((count + 1))
    actual=$(env -i PATH="$work/bin:/usr/bin:/bin" LC_ALL=C sh -c "$command" 2>&1 </dev/null || true)
    if [ "$actual" != "$expected" ]; then
        failed=$((failed + 1))
        printf 'FAILED: %s\n' "$command"
        diff -u --label "$page" --label actual <(printf '%s\n' "$expected") <(printf '%s\n' "$actual") || true
    fi
}

literal=no
command=
expected=
finish() {
    if [ -n "$command" ]; then
        check "$command" "$expected"
    fi
    command=
    expected=
}
while IFS= read -r line; do
    case $literal,$line in
    no,'.Bd -literal'*) literal=yes ;;
    yes,.Ed)
        finish
        literal=no
        ;;
    yes,'$ '*)
        finish
        command=${line#'$ '}
        command=${command//'\e'/\\}
        ;;
    # A line of output that begins with a dot has "\&" before it on the page.
    yes,*) expected+=${line#'\&'}$'\n' ;;
    esac
done <"$page"

if [ "$count" -eq 0 ]; then
    echo "there is no example in $page" >&2
    exit 1
fi
printf '%d of %d examples hold\n' "$((count - failed))" "$count"
[ "$failed" -eq 0 ]
