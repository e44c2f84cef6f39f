#!/bin/sh
# demo.sh RUNNER PREFIX BIN - runs the example programs of BIN under Wine on real text of this machine.
set -eu
runner=$1 prefix=$2 bin=$3
texts=/usr/share/common-licenses
[ -d $texts ] || texts=$(cd "$(dirname "$0")/.." && pwd)

printf '\n$ linestat -t 4 %s/* %s/missing\n' $texts $texts
code=0
"$runner" "$prefix" "$bin/linestat.exe" -t 4 $(find -L $texts -maxdepth 1 -type f | sort) $texts/missing || code=$?
printf '\nIts exit code is %d, since one file is missing. wc counts:\n' $code
find -L $texts -maxdepth 1 -type f -exec cat {} + | wc -lc

tree=/usr/include/linux
[ -d $tree ] || tree=$(cd "$(dirname "$0")/.." && pwd)/src
printf '\n$ linestat --summary %s\n' $tree
"$runner" "$prefix" "$bin/linestat.exe" --summary $tree
printf '\nfind and wc count:\n'
find $tree -type f | wc -l
find $tree -type f -exec cat {} + | wc -lc

printf "\n$ linestat --long '%s/M*'\n" $texts
"$runner" "$prefix" "$bin/linestat.exe" --long "$texts/M*"

# Temporary files of the demo.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
image=$scratch/licenses.image

printf '\n$ wordindex --progress -w 3 -t 2 -n 8 -o licenses.image %s %s\n' $texts $tree
"$runner" "$prefix" "$bin/wordindex.exe" --progress -w 3 -t 2 -n 8 -o "$image" $texts $tree
printf '\n$ wordindex --image licenses.image License GNU warranty struct\n'
"$runner" "$prefix" "$bin/wordindex.exe" --image "$image" License GNU warranty struct
printf '\ngrep counts for the same words:\n'
for word in license gnu warranty struct; do
    find -L $texts $tree -type f -exec cat {} + | LC_ALL=C grep -oai '[a-z0-9]*' | LC_ALL=C grep -cixa $word
done
