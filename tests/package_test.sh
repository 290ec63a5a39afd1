#!/bin/sh
# Installs the library into a scratch prefix, static and shared, moves that elsewhere, and builds
# other people's projects with it. Usage: package_test.sh SOURCE SNIPPET.C SNIPPET.CPP
set -eu
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$2" "$work/program.c"
cp "$3" "$work/program.cpp"
cd "$work"

quietly() {
    "$@" >log 2>&1 || { cat log >&2; echo "FAILED: $*" >&2; exit 1; }
}

# consumer NAME ARGUMENT: configures, builds and runs the consumer project.
consumer() {
    quietly cmake -S "$source/tests/consumers" -B "$1" "-DSNIPPETS=$work" "$2"
    quietly cmake --build "$1"
    quietly ctest --test-dir "$1" --no-tests=error
}

# by_pkg_config PACKAGE SOURCE: compiles and runs one file.
by_pkg_config() {
    # shellcheck disable=SC2046 # One argument for each flag.
    quietly "${CC:-cc}" -std=c99 -g -Wall -Wextra -Wpedantic -Werror "$2" \
        $(pkg-config --cflags --libs "$1") -o "$1.program"
    quietly "./$1.program"
}

consumer subdirectory "-DSUBDIRECTORY=$source"
consumer fetched "-DFETCHED=$source"
for shared in OFF ON; do
    quietly cmake -S "$source" -B build -DCMAKE_BUILD_TYPE=Release "-DBUILD_SHARED_LIBS=$shared" \
        -DQV_BASE_TESTS=OFF -DQV_BASE_EXAMPLES=OFF -DCMAKE_INSTALL_LIBDIR=lib
    quietly cmake --build build
    rm -rf prefix moved
    quietly cmake --install build --prefix "$work/prefix"
    mv prefix moved
    consumer "package-$shared" "-DCMAKE_PREFIX_PATH=$work/moved"

    export PKG_CONFIG_PATH="$work/moved/lib/pkgconfig" LD_LIBRARY_PATH="$work/moved/lib"
    by_pkg_config qv_base program.c
    by_pkg_config qv_base_core "$source/examples/static_arena.c"
done

grep '^(gdb) set' "$source/README.md" | sed 's/^(gdb) //' >commands
gdb -nx -batch -iex "set auto-load safe-path $work" -ex 'break qv_btree_remove' -ex run -ex up \
    -x commands -ex 'print *people' -ex 'qv-check people' qv_base.program >log 2>&1
grep '^$1 = \|^3 entries' "$source/README.md" | while read -r line; do
    grep -qF -- "$line" log || { cat log; exit 1; }
done

nm -D --defined-only moved/lib/libqv_base.so | sed 's/.* //' | sort >exported
grep -o 'qv_btree_[a-z_]*(' "$source/src/base/qv_btree.h" | tr -d '(' | sort -u >public
diff public exported
version=$(sed -n 's/#define QV_BASE_VERSION_[A-Z]* \([0-9]*\) .*/\1/p' "$source/src/base/qv_version.h" | paste -sd.)
[ "$(pkg-config --modversion qv_base)" = "$version" ]
[ -e "moved/lib/libqv_base.so.$version" ]
grep -q "^## $version" "$source/CHANGELOG.md"
echo "installed, moved, found and used"
