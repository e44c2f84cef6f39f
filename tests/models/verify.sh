#!/bin/bash
# verify.sh - searches every state of the synchronisation models in this folder, with the model checker spin.
#
# Each model is searched in one or more sizes and must be free of violations. Then each mistake that a model
# can bring back (its HOLE_ switches) is brought back, and the search must find it: a model that finds nothing
# proves nothing. Prints one line per search; ends with 1 when any search did not end as it must.
set -u
models=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
for tool in spin gcc; do
    command -v $tool >/dev/null || { echo "verify.sh: $tool is not installed" >&2; exit 1; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
searched=""

# Searches a model: report in $work/report, result "clean", "violation" or "unfinished".
search() {
    local model=$1; shift
    rm -f "$work"/*
    ( cd "$work" && spin -a "$@" "$models/$model.pml" && gcc -O2 -w -DSAFETY -DCOLLAPSE -DMEMLIM=3000 -o pan pan.c &&
        ./pan -m200000 ) >"$work/report" 2>&1
    if grep -qE "assertion violated|invalid end state \(at" "$work/report"; then result=violation
    elif grep -qE "errors: 0$" "$work/report" && ! grep -qE "reached -DMEMLIM|max search depth too small|out of memory" "$work/report"; then
        result=clean
    else
        result=unfinished
    fi
    states=$(sed -n 's/^ *\([0-9.e+]*\) states, stored.*/\1/p' "$work/report")
    found=$(sed -n 's/^pan:1: \(.*\) (at depth.*/\1/p' "$work/report")
}

expect() {
    local wanted=$1; shift
    local start=$SECONDS
    searched+=" $* "
    search "$@"
    printf '%-9s %-58s %12s states  %4ds\n' "$result" "$*" "${states:-?}" $((SECONDS - start))
    if [ "$result" != "$wanted" ]; then
        echo "  expected: $wanted; the end of the report:"
        tail -n 20 "$work/report" | sed 's/^/  /'
        failed=1
    elif [ "$wanted" = violation ]; then
        echo "          found: $found"
    fi
}

echo "Searches that must be clean:"
expect clean mutex -DKIND=0
expect clean mutex -DKIND=1
expect clean mutex -DKIND=2
expect clean once
expect clean once -DFAILURES=0
expect clean gate
expect clean condition -DROUNDS=2 -DCALLS=2
expect clean condition -DROUNDS=1 -DCALLS=3
expect clean rwlock -DREADERS=3 -DWRITERS=2 -DROUNDS=1
expect clean rwlock -DREADERS=2 -DWRITERS=2 -DROUNDS=2
expect clean rwlock -DREADERS=2 -DWRITERS=1 -DROUNDS=3 -DFOLD=2

echo "Searches that must find the mistake that was put back:"
expect violation mutex -DKIND=0 -DHOLE_NO_SIGNAL
expect violation mutex -DKIND=0 -DHOLE_SPINS_UNMARKED
expect violation mutex -DKIND=2 -DHOLE_WIPES_MARK
expect violation mutex -DKIND=2 -DHOLE_STALE_OWNER
expect violation once -DHOLE_NO_EVENT_NO_WAIT
expect violation once -DHOLE_CANCELLED_KEEPS
expect violation once -DHOLE_NEXT_IS_ENOUGH
expect violation gate -DHOLE_NO_VISITORS
expect violation gate -DHOLE_SLEEPERS_FORGOTTEN
for hole in LEFT_OVER CANCELLED_KEEPS UNACCOUNTED NO_GATE WAKER_KEEPS_LOCK POST_AFTER_UNLOCK FAILED_POST_COUNTS; do
    expect violation condition -DROUNDS=2 -DCALLS=2 -DHOLE_$hole
done
for hole in CANCELLED_WRITER_LEAVES FAILED_SIGNAL_COUNTS FAILED_FOLD_COUNTS; do
    expect violation rwlock -DREADERS=3 -DWRITERS=2 -DROUNDS=1 -DHOLE_$hole
done

# A switch that no search names would be a mistake that nobody looks for.
for switch in $(grep -hoE 'HOLE_[A-Z_]+' "$models"/*.pml | sort -u); do
    [[ $searched == *" -D$switch "* ]] || { echo "no search puts back $switch"; failed=1; }
done
[ $failed = 0 ] && echo "all models hold"
exit $failed
