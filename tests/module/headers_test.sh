#!/bin/sh
# headers_test.sh CC CXX INCLUDE WORK - each umbrella header compiles alone, as C11 and as C++17, without a
# warning, includes no system header but the three it may, and each family header compiles alone too.
set -eu
cc=$1 cxx=$2 include=$3 work=$4
warnings='-Wall -Wextra -Wpedantic -Werror'
printf '#include <vorn/vorn.h>\n' >"$work/alone.c"
printf '#include <vorn/vorn.h>\n' >"$work/alone_c.cpp"
printf '#include <vorn/vorn.hpp>\n' >"$work/alone.cpp"
"$cc" -std=c11 $warnings -I"$include" -c "$work/alone.c" -o "$work/alone.o"
"$cxx" -std=c++17 $warnings -I"$include" -c "$work/alone_c.cpp" -o "$work/alone.o"
"$cxx" -std=c++17 $warnings -I"$include" -c "$work/alone.cpp" -o "$work/alone.o"
for header in "$include"/vorn/*.h; do
    printf '#include <vorn/%s>\n' "$(basename "$header")" >"$work/alone.c"
    "$cc" -std=c11 $warnings -I"$include" -c "$work/alone.c" -o "$work/alone.o"
    bad=$(grep -E '^ *# *include *<' "$header" | grep -vE '<(stddef|stdint|wchar)\.h>|<vorn/' || true)
    [ -z "$bad" ] || { echo "$header includes $bad"; exit 1; }
done
for header in "$include"/vorn/*.hpp; do
    printf '#include <vorn/%s>\n' "$(basename "$header")" >"$work/alone.cpp"
    "$cxx" -std=c++17 $warnings -I"$include" -c "$work/alone.cpp" -o "$work/alone.o"
    ! grep -nE '<windows\.h>|<unicode/' "$header" || { echo "$header includes a system or ICU header"; exit 1; }
    bad=$("$cxx" -std=c++17 -I"$include" -M "$work/alone.cpp" | tr ' ' '\n' | grep -E '/(windows|winnt|winbase)\.h$|/unicode/u' || true)
    [ -z "$bad" ] || { echo "$header brings in $bad"; exit 1; }
done
for header in "$include"/vorn/*.h "$include"/vorn/*.hpp; do
    umbrella=vorn.hpp
    case $header in *.h) umbrella=vorn.h ;; esac
    name=$(basename "$header")
    [ "$name" = "$umbrella" ] || grep -qF "<vorn/$name>" "$include/vorn/$umbrella" ||
        { echo "$umbrella does not include $name"; exit 1; }
done
