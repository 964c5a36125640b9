#!/usr/bin/env bash
# Tests the completion of a shell through its function. It must neither touch the file nor lock it, nor print errors.
#
#     completion_test.sh VELTOR_BINARY bash|zsh
set -euo pipefail

if [ $# -ne 2 ]; then
    echo "usage: $0 VELTOR_BINARY bash|zsh" >&2
    exit 2
fi
veltor=$(realpath "$1")
shell=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/place" "$work/place/folder"
ln -s "$veltor" "$work/bin/veltor"
cd "$work/place"
{
    printf 'dn: cn=Configuration\ncn: Configuration\nzor-slapdAdminPW: >1secret<\nno attribute\n\n'
    printf 'dn: cn=Front End, cn=Configuration\ncn: Front End\n\n'
    printf 'dn: cn=quote\\"s and $more, cn=Configuration\ncn: quote"s\n'
} >in.conf
printf 'nothing that loads: x\n' >unreadable.conf
# What a terminal would obey is in the file, and is not offered.
printf '\ndn: cn=\033[31mred, cn=Configuration\ncn: red\n' >>in.conf

state() { stat -c '%n %i %y %z %s' in.conf && ls -A; }
before=$(state)
complaints=$(env -i PATH="$work/bin:/usr/bin:/bin" HOME="$work/place" LC_ALL=C VELTOR_FILE=in.conf \
    ${GCOV_ERROR_FILE+"GCOV_ERROR_FILE=$GCOV_ERROR_FILE"} \
    "$shell" "$([ "$shell" = zsh ] && echo -f || echo --norc)" "$here/completion.$shell" </dev/null 2>&1) || true
printf '%s' "$complaints"
[ "$before" = "$(state)" ] || { echo "in.conf was touched"; exit 1; }
[ -z "$complaints" ]
