#!/usr/bin/env bash
# check_torture.sh PROJECT PROGRAMS
#
# scripts/torture tells apart a check that holds, one that does not, one that cannot run, one that hangs
# and one that leaves a process behind, and a long run goes on where it was stopped.
set -euo pipefail
project=$1
programs=$2
"$programs/private_root" /usr/bin/true || exit 77
work=$(mktemp -d "$programs/torture-check-XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
    echo "check_torture: $*" >&2
    exit 1
}

status=0
said=
torture() {
    status=0
    said=$(/usr/bin/python3 -B "$project/torture/run" --programs "$programs" "$@" 2>&1) || status=$?
}

expect() { # STATUS TEXT...
    [ "$status" -eq "$1" ] || fail "ended with $status: $said"
    shift
    local text
    for text in "$@"; do
        [[ $said == *"$text"* ]] || fail "no \"$text\" in: $said"
    done
}

torture self.holds --seed 7
expect 0 "ok      self.holds" "turns 10" "largest 7" "1 of 1 checks hold"
torture self.holds --seed 7 --count 3
expect 0 "turns 3;"
torture self.fails --seed 7
expect 1 "seed 7 does not hold" "again: scripts/torture self.fails --seed 7 --count 10"
torture self.cannot
expect 0 "CANNOT  self.cannot: nobody can"
torture self.hangs
expect 1 "not done after 1 s"
torture self.leaves
expect 1 "left 1 process(es) behind"
torture self.holds --sanitizer thread
expect 0 "0 of 0 checks"
torture self.unknown
expect 1 "no such check: self.unknown"

# Three pieces; what the first run has done the second one finds and adds nothing to.
torture --long self.holds --seed 7 --results "$work/results.json"
expect 0 "turns 50" "largest 9"
torture --long self.holds --seed 100 --results "$work/results.json"
expect 0 "turns 50" "largest 9"
# As when it was stopped after the first one.
sed -i 's/"pieces": 3/"pieces": 2/' "$work/results.json"
torture --long self.holds --results "$work/results.json"
expect 0 "turns 60"
torture --long self.holds --fresh --seed 100 --results "$work/results.json"
expect 0 "turns 50" "largest 102"
