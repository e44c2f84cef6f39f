#!/bin/sh
# install_test.sh CMAKE BUILD CMAKE_FOLDER CONSUMER WORK - installs the build, then builds and runs one C and one
# C++ program against the installed tree alone: once found by CMake, once by pkg-config.
set -eu
cmake=$1 build=$2 cmakeFolder=$3 consumer=$4 work=$5
rm -rf "$work"
mkdir -p "$work"
"$cmake" --install "$build" --prefix "$work/tree" >"$work/install.log"
"$cmake" -S "$consumer" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$cmakeFolder/mingw64.cmake" -Dvorn_DIR="$work/tree/lib/cmake/vorn"
"$cmake" --build "$work/build"
for program in consumer_c consumer_cpp; do
    cp "$work/build/$program.exe" "$work/tree/bin/"
    "$cmakeFolder/run-wine.sh" "$build/wine" "$work/tree/bin/$program.exe"
done
export PKG_CONFIG_LIBDIR="$work/tree/lib/pkgconfig" PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1 PKG_CONFIG_SYSROOT_DIR=
[ "$(pkg-config --modversion vorn)" = 1.0.0 ]
x86_64-w64-mingw32-gcc-posix -std=c11 "$consumer/consumer.c" -o "$work/tree/bin/by_pkg_config_c.exe" $(pkg-config --cflags --libs vorn)
x86_64-w64-mingw32-g++-posix -std=c++17 "$consumer/consumer.cpp" -o "$work/tree/bin/by_pkg_config_cpp.exe" $(pkg-config --cflags --libs vorn)
for program in by_pkg_config_c by_pkg_config_cpp; do
    "$cmakeFolder/run-wine.sh" "$build/wine" "$work/tree/bin/$program.exe"
done
