#!/bin/sh
# run-wine.sh PREFIX PROGRAM [ARGUMENT ...] - runs a Windows program under Wine in a prefix of the build's own.
# The prefix is made on first use; programs started side by side wait for the one that makes it.
set -eu
prefix=$1
shift
mkdir -p "$prefix"
prefix=$(cd "$prefix" && pwd)
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=" LC_ALL=C.UTF-8
unset DISPLAY || true
# Wine 8 needs the address 0x7ffe0000 in every process. Where the host puts a program's heap anywhere, it now and
# then lies there, and the program, or a child that it starts, is refused with the system's error 1359. So programs
# run without the host's random addresses where they can.
fixed="setarch $(uname -m) -R"
$fixed true 2>/dev/null || fixed=
if [ ! -f "$prefix/ready" ]; then
    (
        flock 9
        if [ ! -f "$prefix/ready" ]; then
            $fixed wineboot --init >"$prefix/boot.log" 2>&1 9>&-
            wineserver -w 9>&-
            : >"$prefix/ready"
        fi
    ) 9>"$prefix/lock"
fi
exec $fixed wine "$@"
