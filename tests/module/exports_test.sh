#!/bin/sh
# exports_test.sh CXX OBJDUMP INCLUDE MODULE WORK - the module exports what the public headers declare, all of
# it and nothing else. C functions and free operators are read from the headers' text, class members from the
# debug information that the compiler writes about the headers.
set -eu
cxx=$1 objdump=$2 include=$3 module=$4 work=$5
printf '#include <vorn/vorn.hpp>\n' >"$work/declared.cpp"
"$cxx" -std=c++17 -g -gdwarf-5 -fno-eliminate-unused-debug-types -I"$include" -c "$work/declared.cpp" -o "$work/declared.o"
"$objdump" --dwarf=info "$work/declared.o" >"$work/declared.txt"
"$objdump" -p "$module" >"$work/exported.txt"
exec perl "$(dirname "$0")/exports_test.pl" "$include/vorn" "$work/declared.txt" "$work/exported.txt"
