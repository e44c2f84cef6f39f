#!/bin/sh
# imports_test.sh OBJDUMP MODULE - the module imports Windows system modules, ICU, libstdc++, libgcc and
# winpthread, and nothing else.
set -eu
imports=$("$1" -p "$2" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
[ -n "$imports" ] || { echo "no imports found in $2"; exit 1; }
allowed='^(kernel32|advapi32|psapi|msvcrt|icuuc72|icuio72|icuin72|libstdc\+\+-6|libgcc_s_seh-1|libwinpthread-1)\.dll$'
echo "$imports"
bad=$(echo "$imports" | grep -vE "$allowed" || true)
[ -z "$bad" ] || { echo "not allowed: $bad"; exit 1; }
