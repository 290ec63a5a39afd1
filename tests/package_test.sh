#!/bin/sh
# Takes the library in every way that the guides describe, as other people's projects would.
# Usage: package_test.sh SOURCE SNIPPETS, the programs and CMake lines of the guides by name
set -eu
. "$(dirname "$0")/scratch.sh"
source=$1 snippets=$2
export CMAKE_GENERATOR=Ninja

# consumer NAME LANGUAGES ARGUMENT...: configures and builds the consumer project, which runs its programs.
consumer() {
    name=$1 languages=$2
    shift 2
    quietly cmake -S "$source/tests/consumers" -B "$name" "-DPROGRAMS=$snippets" "-DLANGUAGES=$languages" "$@"
    quietly cmake --build "$name"
}

# install_as NAME ARGUMENT...: builds and installs the library into the folder prefix.
install_as() {
    name=$1
    shift
    quietly cmake -S "$source" -B "$name" -DQV_BASE_TESTS=OFF -DQV_BASE_EXAMPLES=OFF \
        -DCMAKE_INSTALL_LIBDIR=lib "-DCMAKE_INSTALL_PREFIX=$work/prefix" "$@"
    quietly cmake --build "$name"
    rm -rf prefix moved
    quietly cmake --install "$name"
}

# run_c ARGUMENT...: compiles and runs a program. CC may carry a launcher and flags.
run_c() {
    # shellcheck disable=SC2086 # One argument for each of its words.
    quietly ${CC:-cc} -std=c99 -Wall -Wextra -Wpedantic -Werror "$@" -o program
    quietly ./program
}

# by_pkg_config FOLDER PACKAGE SOURCE
by_pkg_config() {
    export PKG_CONFIG_PATH="$1/pkgconfig"
    folder=$(eval "realpath $(pkg-config --variable=libdir "$2")")
    eval "run_c \"\$3\" $(pkg-config --cflags --libs "$2") \"-Wl,-rpath,\$folder\""
}

# The source: in a project in C and C++, with a plugin, in others in C alone, one of them under
# sanitizers, and without the standard platform. An edited header is seen.
consumer subdirectory 'C;CXX' "-DSUBDIRECTORY=$source" -DCMAKE_POSITION_INDEPENDENT_CODE=ON
flags=-fsanitize=address,undefined
consumer sanitized C "-DSUBDIRECTORY=$source" "-DCMAKE_C_FLAGS=$flags" "-DCMAKE_CXX_FLAGS=$flags"
quietly cmake -S "$source" -B core -DQV_BASE_STD_PLATFORM=OFF
quietly cmake --build core --target static_pool btree_test
mkdir copy
cp -R "$source/CMakeLists.txt" "$source/cmake" "$source/src" "$source/platform" copy
consumer fetched C "-DSNIPPET=$snippets/fetch_content.cmake" -DBUILD_SHARED_LIBS=ON \
    "-DFETCHCONTENT_SOURCE_DIR_QV_BASE=$work/copy"
echo '#error edited' >>copy/src/base/qv_btree.h
limited cmake --build fetched >log 2>&1 && fail 'an edited header is not seen'
grep -q 'error.*edited' log

# The files of src/base alone, with a program's own memory functions, and with those of the platform.
mkdir -p copied/qv
cp -R "$source/src/base" copied/qv/base
# shellcheck disable=SC2086 # One argument for each word.
quietly ${CXX:-c++} -std=c++11 -Icopied -c copied/qv/base/qv_btree.cpp "$source"/platform/std/*.cpp
run_c -Icopied "$source/examples/static_pool.c" qv_btree.o
run_c -Icopied "$snippets/people.c" hal_memory.o qv_btree.o

# Installed: with an absolute folder; and static and shared, elsewhere than configured.
install_as build-absolute "-DCMAKE_INSTALL_LIBDIR=$work/absolute"
by_pkg_config "$work/absolute" qv_base "$snippets/people.c"
headers=include/x
for shared in OFF ON; do
    install_as "build-$shared" "-DBUILD_SHARED_LIBS=$shared" "-DCMAKE_INSTALL_INCLUDEDIR=$headers"
    mv prefix moved
    consumer "package-$shared" 'C;CXX' "-DSNIPPET=$snippets/find_package.cmake" "-DCMAKE_PREFIX_PATH=$work/moved"
    by_pkg_config "$work/moved/lib" qv_base "$snippets/people.c"
    by_pkg_config "$work/moved/lib" qv_base_core "$source/examples/static_pool.c"
    headers=$work/headers
done

# The shared library exports the functions of the header under the version of its interface, calls
# none of them through the linkage table (as only an optimised one does), and needs the C library alone.
library=moved/lib/libqv_base.so
version=$(sed -n 's/#define QV_BASE_VERSION_[A-Z]* \([0-9]*\) .*/\1/p' "$source/src/base/qv_version.h" | paste -sd.)
grep -o 'qv_btree_[a-z_]*(' "$source/src/base/qv_btree.h" | tr '(' '@' | sort -u |
    sed "s/$/@QV_BASE_${version%%.*}/" >public
nm -D --defined-only "$library" | grep -o 'qv_btree_.*\|HAL_.*' | sort >exported
diff public exported >log || fail 'exported functions'
objdump -d "$library" | grep 'qv_btree_.*@plt' >log && fail 'calls through the linkage table'
[ "$(objdump -p "$library" | grep -c NEEDED)" -eq 1 ]
[ "$(pkg-config --modversion qv_base) $(basename moved/lib/*.so.*.*.*)" = "$version libqv_base.so.$version" ]
grep -q "^## $version" "$source/CHANGELOG.md"
