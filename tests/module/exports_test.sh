#!/bin/sh
# exports_test.sh OBJDUMP INCLUDE MODULE WORK - the module exports what the public headers declare, all of it and
# nothing else.
set -eu
objdump=$1 include=$2 module=$3 work=$4
"$objdump" -p "$module" | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' |
    sed -n 's/^[[:space:]]*\[ *[0-9]*\].*[[:space:]]\([_A-Za-z][_A-Za-z0-9]*\)$/\1/p' >"$work/exported.txt"
c++filt <"$work/exported.txt" | paste "$work/exported.txt" - >"$work/exports.txt"
exec perl "$(dirname "$0")/exports_test.pl" "$include/vorn" "$work/exports.txt"
