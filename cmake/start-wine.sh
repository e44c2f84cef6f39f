#!/bin/sh
# start-wine.sh PREFIX - makes the prefix if need be and starts a Wine server for it that stays until it is ended
# (wineserver -k). Without one, the server ends whenever no program runs, and a program that starts at that very
# moment is refused.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
"$here/run-wine.sh" "$1" cmd.exe /c exit </dev/null >/dev/null 2>&1
WINEPREFIX=$(cd "$1" && pwd)
export WINEPREFIX WINEDEBUG=-all
wineserver -k || true
wineserver -w
# The server, and the system's services that the first program starts, stay: with the caller's pipe as their
# output, whoever reads that pipe to its end would wait for them.
wineserver -p </dev/null >/dev/null 2>&1
exec "$here/run-wine.sh" "$1" cmd.exe /c exit </dev/null >/dev/null 2>&1
