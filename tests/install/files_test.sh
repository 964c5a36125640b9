#!/bin/sh
# Installs a build into a staging folder, as packages are made, and looks at every file that arrives: that none is
# missing and none is too many, that the libraries have their SONAMEs, that libraries and programs look for libraries
# where they should and nowhere else, and that no file tells where it was built.
#
#     files_test.sh BUILD SOURCE STAGING LIST...
#
# A LIST holds the path of one file a line; for a symbolic link " -> " and its target follow. In the environment: CMAKE;
# LIBRARY_RPATH and PROGRAM_RPATH, the expected search paths.
set -eu
export LC_ALL=C

build=$1
source=$2
staging=$3
shift 3
failed=0

complain() {
    echo "$1" >&2
    failed=1
}

rm -rf "$staging"
mkdir -p "$staging/root"
if ! DESTDIR="$staging/root" "$CMAKE" --install "$build" >"$staging/log" 2>&1; then
    cat "$staging/log" >&2
    exit 1
fi

cat "$@" | sort >"$staging/expected"
(
    cd "$staging/root"
    find . -type l -printf '/%P -> %l\n' -o ! -type d -printf '/%P\n'
) | sort >"$staging/installed"
diff -u "$staging/expected" "$staging/installed" >&2 || complain "other files are installed than the lists name"

# The value of an entry of the dynamic section, or nothing.
dynamic() {
    readelf -d -W "$1" | sed -n "s/.*($2).*\\[\\(.*\\)\\]/\\1/p"
}

libraries=0
find "$staging/root" -type f -name 'lib*.so*' >"$staging/libraries"
while read -r library; do
    libraries=$((libraries + 1))
    name=${library##*/}
    soname=$(dynamic "$library" SONAME)
    [ "$soname" = "${name%%.so*}.so.1" ] || complain "$name: the SONAME is '$soname'"
    rpath=$(dynamic "$library" RPATH)$(dynamic "$library" RUNPATH)
    expected=$LIBRARY_RPATH
    case $name in
    libveltorplatform.so.*) expected= ;; # needs none of the others
    esac
    [ "$rpath" = "$expected" ] || complain "$name: looks for libraries in '$rpath'"
done <"$staging/libraries"
[ "$libraries" -eq 3 ] || complain "$libraries libraries are installed"
find "$staging/root" -type f -path '*/bin/*' >"$staging/programs"
while read -r program; do
    rpath=$(dynamic "$program" RPATH)$(dynamic "$program" RUNPATH)
    [ "$rpath" = "$PROGRAM_RPATH" ] || complain "${program##*/}: looks for libraries in '$rpath'"
done <"$staging/programs"

for place in "$build" "$source"; do
    if grep -rlF -- "$place" "$staging/root" >&2; then
        complain "these files name $place"
    fi
done
exit "$failed"
