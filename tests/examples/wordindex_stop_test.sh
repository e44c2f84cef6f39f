#!/bin/sh
# wordindex_stop_test.sh RUNNER PREFIX PROGRAM FOLDER - what is left when wordindex is interrupted, or when its
# workers or the program itself are killed. FOLDER is emptied.
#
# A run is disturbed while its workers stand still with a part of the files counted, however fast or slow the
# machine is. Where a run is over before that, it is begun again with more texts.
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
# within SECONDS COMMAND ... - waits until the command succeeds; false when it never does.
within() {
    limit=$(($(date +%s) + $1))
    shift
    until "$@"; do
        [ "$(date +%s)" -lt $limit ] || return 1
        sleep 0.05
    done
}

# 25 different texts, each as many times as there are copies.
mkdir one
perl -e 'srand 3; my @w = map { "word$_" } 1 .. 20000;
    for my $f (1 .. 25) {
        open my $o, ">", "one/$f.txt";
        print $o join(" ", map { $w[rand(@w) * rand()] } 1 .. 12), "\n" for 1 .. 900;
    }'
perl "$here/count_words.pl" one >once
copies=0
copy_up_to() {
    while [ $copies -lt "$1" ]; do
        copies=$((copies + 1))
        cp -r one "texts/$copies"
    done
    files=$((25 * copies))
    awk -v copies=$copies '{ print copies * $1, $2 }' once >expected
}
copy_up_to 16

# workers LEAST - the process ids of the workers that run in this prefix and have so many threads at least.
workers() {
    LEAST=$1 PREFIX=$prefix perl -e 'for my $entry (glob "/proc/[0-9]*") {
        local $/;
        open(my $c, "<", "$entry/cmdline") or next;
        open(my $e, "<", "$entry/environ") or next;
        my ($command, $environment) = (scalar(<$c>) // "", scalar(<$e>) // "");
        next unless $command =~ /wordindex\.exe/ && $command =~ /--worker/;
        next unless index("\0$environment", "\0WINEPREFIX=$ENV{PREFIX}\0") >= 0;
        my @threads = glob "$entry/task/*";
        next unless @threads >= $ENV{LEAST};
        print $entry =~ /(\d+)/, "\n";
    }'
}
no_workers() { [ -z "$(workers 1)" ]; }
# signal NAME PROCESS ... - a process may end before the signal gets there.
signal() {
    name=$1
    shift
    for process in "$@"; do kill "-$name" "$process" 2>/dev/null || true; done
}
# hold, release - the workers that have threads at work stand still, and go on. One that only starts is left
# alone: it makes another process, which would be held as well.
hold() {
    held=$(workers 2)
    signal STOP $held
}
release() { signal CONT $held; }
over() { ! kill -0 $parent 2>/dev/null; }
progress() { tr '\r' '\n' <err; }
some_counted() { progress | grep -qE '^ *[0-9]+ %  [1-9][0-9,]* of '; }
stopping() { progress | grep -q ', stopping' || over; }

# begin - begins a run and lets its workers work in turns of a moment until a part of the files is counted; they
# stand still then. False when the run is over before.
begin() {
    rm -f image out err
    : >err
    "$runner" "$prefix" "$program" -w 3 -t 2 -n 1 --progress -o image texts >out 2>err </dev/null &
    parent=$!
    until over; do
        hold
        [ -n "$held" ] && some_counted && return 0
        release
        sleep 0.05
    done
    return 1
}
# finish NAME - waits for the end, and for the exit code; what is counted and what is not.
finish() {
    code=0
    within 120 over || { fail "$1: it does not end"; kill -9 $parent; }
    wait $parent || code=$?
    within 60 no_workers || { fail "$1: workers are left"; signal KILL $(workers 1); }
    counted=$(sed -n 's/ files, .*//p' out | tr -d ,)
    lost=$(progress | grep -c 'its worker was ended' || true)
    waiting=$(progress | sed -n 's/.*files not counted: \([0-9]*\): .*/\1/p')
}
# in_heap - whether a worker was killed inside the heap, which costs the image: the rare other outcome.
in_heap() { [ $code = 2 ] && progress | grep -qF 'not written, since a worker was ended inside the heap'; }

# disturb NAME ACTION - a run to whose workers ACTION happens in the middle of their work.
disturb() {
    for try in $(seq 30); do
        if begin; then
            $2
            finish "$1"
            [ "$counted" = $files ] || in_heap || return 0
        else
            finish "$1"
        fi
        in_heap && { printf '%s: it was inside the heap; once more\n' "$1"; continue; }
        [ $copies -lt 256 ] || break
        printf '%s: it was over before; once more with more texts\n' "$1"
        copy_up_to $((2 * copies))
    done
    fail "$1: its middle is never met"
}
kill_one() {
    kill -9 "$(echo "$held" | head -n 1)"
    release
}
kill_all() { signal KILL $(workers 1); }
interrupt() {
    kill -INT $parent
    within 60 stopping || fail 'an interrupt: it is not heeded'
    release
}
kill_program() {
    kill -9 $parent
    release
}

line() { progress | grep -qF -- "$2" || { fail "$1: no line holds $2"; progress | tail -n 5; }; }
# sound_image - the image can be used, and no word has more than its count.
sound_image() {
    "$runner" "$prefix" "$program" --image image --all >words 2>words.err </dev/null || { fail "$1: the image"; cat words.err; }
    awk 'NR == FNR { most[$2] = $1; next } $1 > most[$2] { exit 1 }' expected words || fail "$1: words that are not in the texts"
    printf '%s: exit code %d, %s of %s files counted, %s lost with their worker\n' "$1" $code "$counted" $files "$lost"
}

disturb 'a killed worker' kill_one
[ $code = 1 ] || fail "a killed worker: exit code $code"
line 'a killed worker' 'it was ended from outside; the others go on (VORN_E_STOPPED)'
sound_image 'a killed worker'
[ $((counted + lost + ${waiting:-0})) = $files ] || fail 'a killed worker: the others did not go on'
# A worker that is killed between two instructions, of which the first takes a file and the second says so.
[ "${waiting:-0}" -le 2 ] || fail 'a killed worker: the others left files'

disturb 'all workers killed' kill_all
[ $code = 1 ] || fail "all workers killed: exit code $code"
sound_image 'all workers killed'

disturb 'an interrupt' interrupt
[ $code = 1 ] || fail "an interrupt: exit code $code"
line 'an interrupt' 'interrupted: the index holds what was counted so far (VORN_E_STOPPED)'
sound_image 'an interrupt'
[ "$lost" = 0 ] || fail 'an interrupt: files were lost'

disturb 'the program killed' kill_program 2>killed
[ -f image ] && fail 'the program killed: there is an image'

[ $failures = 0 ] || exit 1
cd ..
rm -rf "$folder"
echo 'nothing was left behind'
