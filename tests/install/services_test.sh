#!/bin/sh
# Builds a program against the installed libraries whose platform services are not the default ones, and runs it: the
# libraries have to call the program's services. See veltor/platform.h for the three ways.
#
#     services_test.sh program|library|platform INSTALLED SOURCES PLATFORM-LIST SCRATCH
#
# PLATFORM-LIST holds the names that libveltorplatform.so.1 exports. In the environment: CC, CXX, PKG_CONFIG.
set -eu
export LC_ALL=C
unset LD_LIBRARY_PATH

way=$1
installed=$2
sources=$3
list=$4
scratch=$5
PKG_CONFIG_PATH=$(find "$installed" -type d -name pkgconfig)
export PKG_CONFIG_PATH

rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"

# The flags are those of a program that hides what it does not export.
# shellcheck disable=SC2046
compile() {
    "$CC" -std=c99 -Wall -Wextra -Wpedantic -Werror -fvisibility=hidden -fPIC $("$PKG_CONFIG" --cflags veltorplatform) \
        -c "$@"
}
# The words before the libraries are objects and libraries of the program.
# shellcheck disable=SC2046
link() {
    "$CXX" -std=c++11 -Wall -Wextra -Wpedantic -Werror -fvisibility=hidden -o server "$sources/server.cpp" "$@" \
        $("$PKG_CONFIG" --cflags --libs veltorstl ldtr) "-Wl,-rpath,\$ORIGIN:$("$PKG_CONFIG" --variable=libdir ldtr)"
}

compile "$sources/own_codec.c"
case $way in
program)
    link own_codec.o
    ;;
library)
    "$CC" -shared -Wl,-soname,libproduct.so -o libproduct.so own_codec.o
    link -Wl,--no-as-needed libproduct.so
    ;;
platform)
    compile "$sources/own_rest.c"
    "$CC" -shared -Wl,-soname,libveltorplatform.so.1 "-Wl,--version-script=$sources/platform.map" \
        -o libveltorplatform.so.1 own_codec.o own_rest.o
    nm -D --defined-only libveltorplatform.so.1 | awk '$2 != "A" { print $3 }' | sort | diff -u "$list" - >&2
    link -Wl,--no-as-needed libveltorplatform.so.1
    ;;
*)
    echo "$0: unknown way '$way'" >&2
    exit 2
    ;;
esac

cp "$sources/server.conf" .
LD_BIND_NOW=1 ./server server.conf server.conf.bak >out 2>err || {
    cat out err >&2
    exit 1
}
sort out >called
cp "$sources/called_$way.txt" expected
diff -u expected called >&2
# The libraries and what they need had nothing to say.
case $way in
platform) : >no_words ;;
*) echo starts >no_words ;;
esac
diff -u no_words err >&2
grep -q '^zor-slapdAdminPW: >terces-wen<$' server.conf || {
    cat server.conf >&2
    exit 1
}
