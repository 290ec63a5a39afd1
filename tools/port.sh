#!/bin/sh
# Builds and runs the tests for other processors, under emulation, and builds the library for a
# microcontroller and for Windows. Called by ./dev port, which installs the compilers.
set -eu
cd "$(dirname "$0")/.."
build=$PWD/build/port
mkdir -p "$build"

# run_tests NAME COMPILER-PREFIX [EMULATOR]: everything linked statically, to need no foreign system.
run_tests() {
    echo "== $1"
    cmake -S . -B "$build/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Linux \
        "-DCMAKE_SYSTEM_PROCESSOR=$1" "-DCMAKE_C_COMPILER=$2-gcc" "-DCMAKE_CXX_COMPILER=$2-g++" \
        -DCMAKE_EXE_LINKER_FLAGS=-static ${3:+"-DCMAKE_CROSSCOMPILING_EMULATOR=$3"} \
        >"$build/$1.log" 2>&1 && cmake --build "$build/$1" >>"$build/$1.log" 2>&1 ||
        { cat "$build/$1.log"; exit 1; }
    ctest --test-dir "$build/$1" --output-on-failure --no-tests=error -j 2 >"$build/$1.log" 2>&1 ||
        { cat "$build/$1.log"; exit 1; }
    tail -n 4 "$build/$1.log" | grep 'tests passed'
}

run_tests arm arm-linux-gnueabihf qemu-arm
run_tests aarch64 aarch64-linux-gnu qemu-aarch64
run_tests s390x s390x-linux-gnu qemu-s390x
run_tests i386 i686-linux-gnu

echo "== windows"
cmake -S . -B "$build/windows" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Windows \
    -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix \
    -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DQV_BASE_TESTS=OFF >"$build/windows.log" 2>&1 &&
    cmake --build "$build/windows" >>"$build/windows.log" 2>&1 || { cat "$build/windows.log"; exit 1; }
file=$(cd "$build/windows" && ls concordance.exe libqv_base.a libqv_base_core.a)
echo "built:" $file

echo "== cortex-m0plus, freestanding"
cd "$build"
# 4096 entries don't fit such a device, and it predicts no branches: one kind of search is enough.
for small in 4096 0; do
    arm-none-eabi-g++ -mcpu=cortex-m0plus -mthumb -std=c++11 -Os -ffreestanding -fno-exceptions \
        -fno-rtti -DNDEBUG "-DQV_BTREE_SMALL_MAP=$small" -Wall -Wextra -Wpedantic -Wconversion \
        -Wsign-conversion -Wshadow -Wold-style-cast -Werror -fstack-usage \
        -I../../src/base -c ../../src/base/qv_btree.cpp -o "m0-$small.o"
    arm-none-eabi-size "m0-$small.o" | awk -v small="$small" \
        'NR == 2 { print "QV_BTREE_SMALL_MAP=" small ": code " $1 " bytes, data " $2 + $3 " bytes" }'
done
echo "stack of each function itself, in bytes, the largest first:"
sed 's/.*:\([^:]*\)\t\([0-9]*\)\t.*/\2 \1/; s/(.*//' m0-4096.su | sort -rn | head -n 8
