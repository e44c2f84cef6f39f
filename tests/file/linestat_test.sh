#!/bin/sh
# linestat_test.sh RUNNER PREFIX PROGRAM - what linestat prints, against wc, perl and base64 of this machine.
set -u
runner=$1 prefix=$2 program=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0

fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

linestat() {
    "$runner" "$prefix" "$program" "$@" >"$folder/out" 2>"$folder/err"
    code=$?
    tr -d '\r' <"$folder/out" >"$folder/lines"
}

expect_code() { [ "$code" = "$1" ] || fail "exit code $code instead of $1: $2"; }
expect_text() { grep -qF -- "$1" "$folder/lines" "$folder/err" || fail "\"$1\" is not printed: $2"; }

cd "$folder" || exit 1
mkdir texts
repeat() { perl -e 'print $ARGV[0] x $ARGV[1]' "$1" "$2"; }
: >texts/empty
printf 'no line end' >texts/unended
printf 'one\ntwo\nthree\n' >texts/unix
printf 'one\r\ntwo\r\n\r\n' >texts/windows
printf 'one\rtwo\r' >texts/returns
printf '\n\n\n' >texts/feeds
printf 'ends in the byte that is skipped\013' >texts/eleven
for length in 510 511 512 513 1023 1024; do
    { repeat x $length; printf '\nshort\n'; } >texts/long-$length
    { repeat x $length; printf '\r\nshort\r\n'; } >texts/long-windows-$length
    { repeat x $length; printf '\rmore\n'; } >texts/return-inside-$length
    { repeat x $length; printf '\013more\n'; } >texts/eleven-inside-$length
    { repeat x $length; printf '\r'; } >texts/return-last-$length
done
perl -e 'srand 5; for (1..400) { print join("", map { chr(1 + int rand 255) } 1..int(rand 900)), rand() < 0.5 ? "\n" : "\r\n" }' >texts/bytes
printf 'a name outside ASCII\n' >"texts/$(printf 'd\303\251j\303\240-\346\227\245.txt')"
if [ -d /usr/share/common-licenses ]; then cp -L /usr/share/common-licenses/* texts/; fi

linestat -t 4 texts/*
expect_code 0 'all files can be read'
for file in texts/*; do
    lines=$(wc -l <"$file")
    bytes=$(wc -c <"$file")
    longest=$(perl -0777 -ne 'my $m = 0; while (/([^\n]*?)\r?\n|([^\n]+)\z/g) { my $n = length($1 // $2); $m = $n if $n > $m } print $m' "$file")
    first=$(head -c 57 "$file" | base64 -w 0)
    awk -v name="$file" -v wanted="$((lines)) $((bytes)) ${longest:-0} ${first:--}" '
        index($0, "  " name) && substr($0, length($0) - length(name) + 1) == name { found = $1 " " $2 " " $3 " " $4 }
        END { if (found != wanted) { print "FAILED: " name ": " found " instead of " wanted; exit 1 } }' lines || failures=$((failures + 1))
done
count=$(ls texts | wc -l)
lines=$(cat texts/* | wc -l)
bytes=$(cat texts/* | wc -c)
tail -n 1 lines | awk '{ print $1, $2, $5, $6, $7, $8 }' | grep -qx "$((lines)) $((bytes)) total of $((count)) files" ||
    fail "the total is $(tail -n 1 lines) instead of $((lines)) lines and $((bytes)) bytes of $((count)) files"
cp lines with-four

linestat --threads 1 -- texts/*
expect_code 0 'one thread'
cmp -s lines with-four || fail 'one thread and four print different things'

linestat texts/unix texts/missing no/file texts/windows
expect_code 1 'two files are missing'
expect_text 'not read: 131 VORN_E_NOT_FOUND' 'a missing file'
expect_text 'not read: 132 VORN_E_PATH_NOT_FOUND' 'a missing folder'
expect_text 'total of 2 files, 2 not read' 'the rest goes on'
[ "$(wc -l <lines)" = 6 ] || fail 'a row for each name, the heading and the total'

# A tree: levels, names of every kind, an empty directory, links that must not be followed.
mkdir -p tree/a/b/c/d/e "tree/with space" tree/nothing
cp texts/* tree/
cp texts/u* tree/a/b/
cp texts/long-5* tree/a/b/c/d/e/
printf 'deep\n' >tree/a/b/c/d/e/f.txt
printf 'x\ny\n' >"tree/with space/two words.txt"
printf 'hidden\n' >tree/.dot
ln -s . tree/a/loop
ln -s ../texts tree/elsewhere
touch -d '2020-02-29 12:34:56 UTC' tree/unix
find tree -type f | sort >wanted
lines=$(xargs -d '\n' cat <wanted | wc -l)
bytes=$(xargs -d '\n' cat <wanted | wc -c)
count=$(wc -l <wanted)
wanted_total="$((lines)) $((bytes)) total of $((count)) files"

linestat -l tree
expect_code 0 'a tree'
sed '1d;$d' lines | sed 's/^ *[0-9]* *[0-9]* *[0-9]* *[0-9]*  [-0-9]* [:0-9]*  //' | tr '\\' / | sort >found
cmp -s wanted found || fail "the files found are not those of find: $(diff wanted found | head -n 5)"
tail -n 1 lines | awk '{ print $1, $2, $6, $7, $8, $9 }' | grep -qx "$wanted_total" ||
    fail "the tree's total is $(tail -n 1 lines) instead of $wanted_total"
while read -r file; do
    row=$(printf '%s  %s' "$(TZ=UTC stat -c '%s  %y' "$file" | cut -c 1-$((21 + $(stat -c %s "$file" | tr -d '\n' | wc -c))))" "$(printf %s "$file" | tr / '\\')")
    grep -qF "  $row" lines || fail "no row with size and time \"$row\""
done <wanted
expect_text '2020-02-29 12:34:56' 'a time'

for same in tree/ 'tree\' ./tree "$folder/tree"; do
    linestat --summary "$same"
    expect_code 0 "$same"
    [ "$(wc -l <lines)" = 2 ] || fail "a summary is a heading and a total: $same"
    tail -n 1 lines | awk '{ print $1, $2, $4, $5, $6, $7 }' | grep -qx "$wanted_total" ||
        fail "the total of $same is $(tail -n 1 lines) instead of $wanted_total"
done

linestat -s 'tree/long-*'
expect_code 0 'a pattern'
expect_text "total of $(ls -d tree/long-* | wc -l) files" 'a pattern'
linestat -s 'tree/*'
expect_text "total of $count files" 'a pattern takes directories with all that is below'
linestat -s 'tree\a\b\u?ix' tree/a/b/unended
expect_text 'total of 2 files' 'a pattern and a name'
linestat -s tree/a/loop
expect_text "total of $(find tree/a -type f | wc -l) files" 'a link that a word names is followed, once'
linestat tree/nothing
expect_code 0 'an empty directory'
expect_text 'total of 0 files' 'an empty directory'
linestat -s 'tree/*.none' 'no/*' texts/unix
expect_code 1 'patterns that match nothing'
expect_text 'not read: 131 VORN_E_NOT_FOUND' 'nothing matches'
expect_text 'not read: 132 VORN_E_PATH_NOT_FOUND' 'no such directory'
expect_text 'total of 1 file, 2 not read' 'the rest goes on'

linestat --help
expect_code 0 'help'
expect_text 'usage: linestat' 'help'
linestat
expect_code 2 'no file'
expect_text 'no file is named' 'no file'
linestat -t 0 texts/unix
expect_code 2 'no thread'
linestat -t
expect_code 2 'no number'
linestat --unknown texts/unix
expect_code 2 'an unknown option'
expect_text 'there is no option --unknown' 'an unknown option'

[ $failures = 0 ] && printf '%d files of a tree found as find finds them and counted as wc counts them\n' "$count"
exit $failures
