#!/bin/sh
# wordindex_stop_test.sh RUNNER PREFIX PROGRAM FOLDER - what is left when wordindex is interrupted, or when its
# workers or the program itself are killed. FOLDER is emptied.
set -eu
runner=$1 prefix=$2 program=$3 folder=$4
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$folder"
mkdir -p "$folder/texts"
cd "$folder"

failures=0
fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}
# 25 different texts, each 16 times.
files=400
mkdir one
perl -e 'srand 3; my @w = map { "word$_" } 1 .. 20000;
    for my $f (1 .. 25) {
        open my $o, ">", "one/$f.txt";
        print $o join(" ", map { $w[rand(@w) * rand()] } 1 .. 12), "\n" for 1 .. 900;
    }'
for copy in $(seq 16); do cp -r one "texts/$copy"; done
perl "$here/count_words.pl" one | awk '{ print 16 * $1, $2 }' >expected

# workers - the process ids of the workers that run in this prefix.
workers() {
    PREFIX=$prefix perl -e 'for my $entry (glob "/proc/[0-9]*") {
        local $/;
        open(my $c, "<", "$entry/cmdline") or next;
        open(my $e, "<", "$entry/environ") or next;
        my ($command, $environment) = (scalar(<$c>) // "", scalar(<$e>) // "");
        next unless $command =~ /wordindex\.exe/ && $command =~ /--worker/;
        next unless index("\0$environment", "\0WINEPREFIX=$ENV{PREFIX}\0") >= 0;
        print $entry =~ /(\d+)/, "\n";
    }'
}
# start - begins a run; returns once a part of the files is counted.
start() {
    rm -f image out err
    "$runner" "$prefix" "$program" -w 3 -t 2 -n 1 --progress -o image texts >out 2>err </dev/null &
    parent=$!
    for try in $(seq 600); do
        tr '\r' '\n' <err | grep -qE '^ *[0-9]+ %  [1-9][0-9]* of ' && return 0
        kill -0 $parent 2>/dev/null || { fail "$1: over before it was disturbed"; return 0; }
        sleep 0.05
    done
    fail "$1: nothing is counted"
}
# finish - waits for the end, and for the exit code.
finish() {
    code=0
    for try in $(seq 600); do
        kill -0 $parent 2>/dev/null || break
        sleep 0.1
    done
    kill -0 $parent 2>/dev/null && { fail "$1: it does not end"; kill -9 $parent; }
    wait $parent || code=$?
    for try in $(seq 100); do
        [ -z "$(workers)" ] && return 0
        sleep 0.1
    done
    fail "$1: workers are left"
}
line() { tr '\r' '\n' <err | grep -qF -- "$2" || { fail "$1: no line holds $2"; tr '\r' '\n' <err | tail -n 5; }; }
# sound_image - the image can be used, and no word has more than its count.
sound_image() {
    "$runner" "$prefix" "$program" --image image --all >words 2>words.err </dev/null || { fail "$1: the image"; cat words.err; }
    awk 'NR == FNR { most[$2] = $1; next } $1 > most[$2] { exit 1 }' expected words || fail "$1: words that are not in the texts"
    counted=$(sed -n 's/ files, .*//p' out)
    lost=$(tr '\r' '\n' <err | grep -c 'its worker was ended' || true)
    printf '%s: exit code %d, %s files counted, %s lost with their worker\n' "$1" $code "$counted" "$lost"
}

# in_heap - whether the worker was killed inside the heap, which costs the image: the rare other outcome.
in_heap() { [ $code = 2 ] && tr '\r' '\n' <err | grep -qF 'not written, since a worker was ended inside the heap'; }

for try in 1 2 3; do
    start 'a killed worker'
    kill -9 $(workers | head -n 1)
    finish 'a killed worker'
    in_heap || break
    echo 'a killed worker: it was inside the heap; once more'
done
[ $code = 1 ] || fail "a killed worker: exit code $code"
line 'a killed worker' 'it was ended from outside; the others go on (VORN_E_STOPPED)'
sound_image 'a killed worker'
[ $((counted + lost)) = $files ] || fail 'a killed worker: the others did not go on'

for try in 1 2 3; do
    start 'all workers killed'
    kill -9 $(workers)
    finish 'all workers killed'
    in_heap || break
    echo 'all workers killed: one was inside the heap; once more'
done
[ $code = 1 ] || fail "all workers killed: exit code $code"
sound_image 'all workers killed'

start 'an interrupt'
kill -INT $parent
finish 'an interrupt'
[ $code = 1 ] || fail "an interrupt: exit code $code"
line 'an interrupt' 'interrupted: the index holds what was counted so far (VORN_E_STOPPED)'
sound_image 'an interrupt'
[ "$lost" = 0 ] || fail 'an interrupt: files were lost'
[ "$counted" -lt $files ] || fail 'an interrupt: everything was counted'

start 'the program killed'
kill -9 $parent
finish 'the program killed' 2>/dev/null
[ -f image ] && fail 'the program killed: there is an image'

[ $failures = 0 ] || exit 1
cd ..
rm -rf "$folder"
echo 'nothing was left behind'
