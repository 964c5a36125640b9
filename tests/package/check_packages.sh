#!/usr/bin/env bash
# Looks at the Debian packages that scripts/package has built, in a scratch root that nothing else uses.
#
#     check_packages.sh PART FOLDER VERSION
#
#     contents     they are the packages, of this version, and each holds the files that contents/PACKAGE.txt names
#     installed    dpkg installs the libraries and the tool, all they depend on is there, and the tool works
#     development  programs in C are built with the development package, through pkg-config and through CMake
#
#     check_packages.sh --record FOLDER
#
# writes contents/*.txt anew, to be looked at before it is committed.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
part=$1
folder=$(realpath "$2")
version=${3:-}
packages=(libldtr1 libveltorplatform1 libveltorstl-dev libveltorstl1 veltor)
triplet=$(dpkg-architecture -q DEB_HOST_MULTIARCH)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The file of a package, of which there is one.
file_of() {
    local files=("$folder/$1"_*.deb)
    if ((${#files[@]} != 1)) || [[ ! -f ${files[0]} ]]; then
        echo "there must be one package $1 in $folder" >&2
        exit 1
    fi
    echo "${files[0]}"
}

# Mode, owner and name of every file and link in a package.
list() {
    dpkg-deb --fsys-tarfile "$(file_of "$1")" | tar -tv --numeric-owner |
        sed -nE -e "s|$triplet|TRIPLET|g" -e '/^d/d' -e 's|^(\S+) (\S+) +[0-9]+ \S+ \S+ \.|\1 \2 |p' | LC_ALL=C sort -k 3
}

# Installs packages into $root. What they depend on is taken to be there if this machine has it.
install_packages() {
    root=$work/root
    local database=$root/var/lib/dpkg name
    mkdir -p "$database"/{info,updates,triggers}
    # Without our own packages, should they be installed here.
    awk -v RS= -v ORS='\n\n' '!/^Package: (veltor|libveltor|libldtr)/' /var/lib/dpkg/status >"$database/status"
    for name in /var/lib/dpkg/info/*.list; do
        : >"$database/info/${name##*/}"
    done
    local files=()
    for name in "$@"; do
        files+=("$(file_of "$name")")
    done
    local as_root=()
    if ((EUID != 0)); then
        as_root=(fakeroot)
    fi
    if ! PATH=$PATH:/usr/sbin:/sbin "${as_root[@]}" dpkg --root="$root" --force-not-root --force-script-chrootless \
        --install "${files[@]}" >"$work/dpkg.txt" 2>&1; then
        cat "$work/dpkg.txt" >&2
        exit 1
    fi
    libraries=$root/usr/lib/$triplet
    cp "$here/../../examples/zorslapd.conf" "$work/"
}

expect() {
    local what=$1 wanted=$2 found=$3
    if [[ $wanted != "$found" ]]; then
        printf '%s: expected "%s", found "%s"\n' "$what" "$wanted" "$found" >&2
        exit 1
    fi
}

check_contents() {
    local name failed=0
    for name in "${packages[@]}"; do
        expect "version of $name" "$version" "$(dpkg-deb -f "$(file_of "$name")" Version)"
        list "$name" | diff -u "$here/contents/$name.txt" - || failed=1
    done
    expect "headers" "$(cd "$here/../../include/veltor" && ls)" \
        "$(list libveltorstl-dev | sed -n 's|.* /usr/include/veltor/||p')"
    return "$failed"
}

check_installed() {
    install_packages libldtr1 libveltorplatform1 libveltorstl1 veltor
    local veltor=$root/usr/bin/veltor script
    if readelf -d "$veltor" "$libraries"/lib*.so.1 | grep -E 'RPATH|RUNPATH'; then
        echo "a path to libraries was left in a binary" >&2
        exit 1
    fi
    export LD_LIBRARY_PATH=$libraries
    cd "$work"
    expect "libraries that come from the packages" "libveltorplatform.so.1 libveltorstl.so.1" \
        "$(ldd "$veltor" "$libraries/libldtr.so.1" | grep -F " => $root/" | awk '{print $1}' | sort -u | xargs)"
    expect "veltor version" "veltor $version" "$("$veltor" version)"
    expect "veltor get" 389 "$("$veltor" get -F zorslapd.conf port)"
    "$veltor" set -F zorslapd.conf port=1389 >set.txt
    expect "veltor get, after set" 1389 "$("$veltor" get -F zorslapd.conf port)"
    script=$root/usr/share/bash-completion/completions/veltor
    expect "completion in bash" "complete" "$(bash --norc -c "source '$script' && complete -p veltor" | cut -d' ' -f1)"
    cmp "$script" <("$veltor" completion bash)
    cmp "$root/usr/share/zsh/vendor-completions/_veltor" <("$veltor" completion zsh)
}

check_development() {
    install_packages libldtr1 libveltorplatform1 libveltorstl1 libveltorstl-dev
    export LD_LIBRARY_PATH=$libraries
    local flags
    # The packages' own modules come first; what they need of other packages is this machine's.
    flags=$(PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config --cflags --libs veltorstl)
    # shellcheck disable=SC2086 # the flags are words
    cc -std=c99 -Wall -Wextra -Werror -o "$work/port" "$here/consumer/port.c" $flags
    expect "program built through pkg-config" 389 "$("$work/port" "$work/zorslapd.conf")"

    cmake -G Ninja -S "$here/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$root/usr" >"$work/cmake.txt"
    cmake --build "$work/build" >>"$work/cmake.txt"
    expect "veltor_DIR" "$libraries/cmake/veltor" "$(sed -n 's/^veltor_DIR:PATH=//p' "$work/build/CMakeCache.txt")"
    expect "program built through CMake" 389 "$("$work/build/consumer" "$work/zorslapd.conf")"
}

case $part in
contents | installed | development) "check_$part" ;;
--record)
    for name in "${packages[@]}"; do
        list "$name" >"$here/contents/$name.txt"
    done
    ;;
*)
    echo "usage: $0 contents|installed|development|--record FOLDER VERSION" >&2
    exit 2
    ;;
esac
