#!/bin/sh
# Builds and runs the tests for other processors and for Windows, and an example on two
# microcontrollers, all under emulation. Called by ./dev port, which installs what this needs.
set -eu
cd "$(dirname "$0")/.."
source=$PWD
build=$PWD/build/port
mkdir -p "$build"
warnings='-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror'

# quietly LOG COMMAND...: what it prints goes to the log, and its end to the terminal where it fails.
quietly() {
    log=$build/$1
    shift
    "$@" >"$log" 2>&1 || { tail -n 20 "$log" >&2; echo "FAILED: $*; the whole log: $log" >&2; exit 1; }
}

# run_tests NAME EMULATOR ARGUMENT...: everything linked statically, to need no foreign system.
run_tests() {
    name=$1
    emulator=$2
    shift 2
    echo "== $name"
    quietly "$name.log" cmake -S . -B "$build/$name" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        "-DCMAKE_SYSTEM_PROCESSOR=$name" "-DCMAKE_CROSSCOMPILING_EMULATOR=$emulator" \
        -DCMAKE_EXE_LINKER_FLAGS=-static -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@"
    quietly "$name.log" cmake --build "$build/$name"
    quietly "$name.log" ctest --test-dir "$build/$name" --output-on-failure --no-tests=error -j 2
    grep 'tests passed' "$build/$name.log"
}

# run_on_linux NAME EMULATOR COMPILER-PREFIX
run_on_linux() {
    run_tests "$1" "$2" -DCMAKE_SYSTEM_NAME=Linux "-DCMAKE_C_COMPILER=$3-gcc" \
        "-DCMAKE_CXX_COMPILER=$3-g++"
}

run_on_linux arm qemu-arm arm-linux-gnueabihf
run_on_linux aarch64 qemu-aarch64 aarch64-linux-gnu
run_on_linux riscv64 qemu-riscv64 riscv64-linux-gnu
run_on_linux s390x qemu-s390x s390x-linux-gnu
run_on_linux i386 qemu-i386 i686-linux-gnu

# With a DLL, which Windows finds in the folder of the program.
export WINEPREFIX="$build/wine" WINEDEBUG=-all
quietly wine.log /usr/lib/wine/wine64 wineboot
run_tests windows /usr/lib/wine/wine64 -DCMAKE_SYSTEM_NAME=Windows -DBUILD_SHARED_LIBS=ON \
    "-DCMAKE_RUNTIME_OUTPUT_DIRECTORY=$build/windows/bin" \
    -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix

# The flags of Microsoft's compiler, as clang understands them, over MinGW's headers, which want to
# be compiled by something like GCC. Import libraries to link a program with are not at hand.
echo "== windows, clang-cl"
for clang_cl in /usr/bin/clang-cl*; do :; done
quietly clang-cl.log cmake -S . -B "$build/clang-cl" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_SYSTEM_NAME=Windows "-DCMAKE_CXX_COMPILER=$clang_cl" \
    -DCMAKE_CXX_FLAGS='--target=x86_64-pc-windows-msvc /clang:-fgnuc-version=4.2.1 /imsvc /usr/share/mingw-w64/include' \
    -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DQV_BASE_TESTS=OFF -DQV_BASE_EXAMPLES=OFF
quietly clang-cl.log cmake --build "$build/clang-cl"
echo "built: $(cd "$build/clang-cl" && echo ./*.lib)"

# on_board NAME PREFIX FLAGS LINKER-FLAGS EMULATOR...: examples/static_pool.c prints there what it
# prints here.
on_board() {
    board=$1 prefix=$2 flags="$3 -Os -ffunction-sections -fdata-sections -I." linking=$4
    shift 4
    echo "== $board"
    rm -rf "${build:?}/$board"
    mkdir -p "$build/$board/qv"
    cd "$build/$board"
    cp -R "$source/src/base" qv/base
    cp "$source"/examples/boards/*.ld .
    # shellcheck disable=SC2086 # One argument for each flag.
    {
        "$prefix-g++" $flags $warnings -Wold-style-cast -std=c++11 -ffreestanding -fno-exceptions \
            -fno-rtti -DNDEBUG -c qv/base/qv_btree.cpp
        "$prefix-gcc" $flags $warnings -std=c99 -c "$source/examples/static_pool.c"
        "$prefix-gcc" $flags $warnings -std=gnu99 -c "$source/examples/boards/$board.c"
        "$prefix-gcc" $flags -Wl,--gc-sections ./*.o $linking -o program.elf
    }
    timeout --foreground 60 "$@" program.elf 2>&1 </dev/null | sed 's/\x1b\[[0-9;]*m//g; s/\.$//' >printed
    grep -F -x -f "$build/expected" printed | diff "$build/expected" - || { cat printed; exit 1; }
    "$prefix-size" program.elf
    cat "$build/expected"
    cd "$source"
}

mkdir -p "$build/here/qv"
ln -sfn "$source/src/base" "$build/here/qv/base"
g++ -std=c++11 -O2 -c src/base/qv_btree.cpp -o "$build/here/qv_btree.o"
gcc -std=c99 "-I$build/here" examples/static_pool.c "$build/here/qv_btree.o" -o "$build/here/program"
"$build/here/program" >"$build/expected"
on_board microbit arm-none-eabi '-mcpu=cortex-m0 -mthumb' \
    "--specs=nano.specs --specs=nosys.specs -nostartfiles -T microbit.ld" \
    qemu-system-arm -M microbit -nographic -semihosting-config enable=on,target=native -kernel
on_board atmega328p avr -mmcu=atmega328p '' simavr -m atmega328p -f 16000000

echo "== cortex-m0plus, freestanding"
cd "$build"
# shellcheck disable=SC2086
arm-none-eabi-g++ -mcpu=cortex-m0plus -mthumb -std=c++11 -Os -ffreestanding -fno-exceptions \
    -fno-rtti -DNDEBUG $warnings -Wold-style-cast -fcallgraph-info=su "-I$source/src/base" \
    -c "$source/src/base/qv_btree.cpp" -o m0.o
arm-none-eabi-size m0.o | awk 'NR == 2 { print "code " $1 " bytes, data " $2 + $3 " bytes"; exit $1 >= 2048 || $2 + $3 > 0 }'
echo "stack of each function with all that it calls of the library, in bytes, the largest first:"
awk -F'"' '
    function total(caller, called, count, i, deepest) {
        count = split(calls[caller], called, "\n")
        for (i = 2; i <= count; ++i) {
            if (total(called[i]) > deepest) deepest = total(called[i])
        }
        return own[caller] + deepest
    }
    /^node/ && match($4, /[0-9]+ bytes/) { own[$2] = substr($4, RSTART, RLENGTH) + 0 }
    /^edge/ { calls[$2] = calls[$2] "\n" $4 }
    END { for (name in own) if (name ~ /^qv_btree_/) print total(name), name }
' m0.ci | sort -rn | tee stack
awk '$1 > 350 { exit 1 }' stack
