#!/usr/bin/env bash
# check_torture.sh PROJECT PROGRAMS
#
# scripts/torture tells apart a check that holds, one that does not, one that cannot run, one that hangs
# and one that leaves a process behind; a long run goes on where it was stopped, and believes nothing of
# another build; and however it ends, no process is left.
set -euo pipefail
project=$1
programs=$2
"$programs/private_root" /usr/bin/true || exit 77
work=$(mktemp -d "$programs/torture-check-XXXXXX")
export TORTURE_SELF_FILE=$work/put-back
trap 'kill_marked; rm -rf "$work"' EXIT

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

expect_not() { # TEXT...
    local text
    for text in "$@"; do
        [[ $said != *"$text"* ]] || fail "\"$text\" in: $said"
    done
}

# What CI shows of a check that could not run: a line of its own.
expect_left_out() { # CHECK
    grep -q "^LEFT OUT: torture $1, because " <<<"$said" || fail "$1 is not left out: $said"
    expect 0 "0 of 1 checks hold, 1 could not run"
    expect_not "ok  "
}

# Processes with a mark in what they were started with.
marked() { # MARK
    grep -lzx "TORTURE_MARK=$1" /proc/[0-9]*/environ 2>/dev/null || true
}

# What a driver that is wrong has left.
kill_marked() {
    local file
    for file in $(grep -lz "^TORTURE_MARK=$work/" /proc/[0-9]*/environ 2>/dev/null || true); do
        kill -KILL "${file//[!0-9]/}" || true
    done
}

# There are so many, or will be soon. Until then the others may wait for a check.
await_marked() { # MARK COUNT
    local end=$((SECONDS + 20))
    until [ "$(marked "$1" | wc -l)" -eq "$2" ]; do
        [ "$SECONDS" -lt "$end" ] || fail "$1: $(marked "$1" | wc -l) processes instead of $2"
    done
}

expect_put_back() { # WHAT
    [ -s "$TORTURE_SELF_FILE" ] || fail "$1 kills who puts back what a check has changed"
}

# ends_by SIGNAL STATUS CHECK COUNT: the driver, the check and what belongs to it are COUNT processes.
# However the driver ends, with it they all do, and those who put things back had the time for it.
ends_by() {
    local mark=$work/$1 ended=0 driver
    env --default-signal=INT,TERM,HUP "TORTURE_MARK=$mark" \
        /usr/bin/python3 -B "$project/torture/run" --programs "$programs" "$3" >"$work/said" 2>&1 &
    driver=$!
    rm -f "$TORTURE_SELF_FILE"
    await_marked "$mark" "$4"
    kill "-$1" "$driver"
    { wait "$driver" || ended=$?; } 2>/dev/null # which says who was killed
    [ "$ended" -eq "$2" ] || fail "SIG$1 ends the driver with $ended: $(cat "$work/said")"
    # The kernel ends those of a driver that was killed, in its own time.
    [ "$1" = KILL ] && await_marked "$mark" 0
    [ -z "$(marked "$mark")" ] || fail "SIG$1 leaves processes: $(marked "$mark" | wc -l)"
    [ "$3" = self.alone ] || expect_put_back "SIG$1"
}

# The long form can say how long it takes.
PYTHONPATH=$project/torture/run /usr/bin/python3 -B -c '
import checks, measured
unknown = {check.name for check in checks.CHECKS + checks.OWN[:1]} - measured.SECONDS.keys()
assert not unknown, f"nobody has measured {unknown}"' || fail "not every check is measured"

torture self.holds --seed 7
expect 0 "ok      self.holds" "turns 10" "largest 7" "1 of 1 checks hold; "
[[ $said =~ \;\ [0-9]+\ s\.$ ]] || fail "no seconds at the end of: $said"
torture self.holds --seed 7 --count 3
expect 0 "turns 3;"
torture self.fails --seed 7
expect 1 "seed 7 does not hold" "again: scripts/torture self.fails --seed 7 --count 10" \
    "0 of 1 checks hold;"
torture self.cannot
expect_left_out self.cannot
expect 0 "nobody can"
torture self.unknown
expect 1 "no such check: self.unknown"

# A name is that check, also where others begin with it (the first of all has run one check); otherwise it
# is the first part of several.
torture self.pair
expect 0 "1 of 1 checks hold"
# What the form leaves out is done when it is named: a piece of it.
torture self.pair.long
expect 0 "turns 20" "1 of 1 checks hold"
torture self.holds --sanitizer thread
expect 1 "self.holds has nothing to do with --sanitizer thread"

# A disk that does not come back after a power cut is a failure, where disks can be had at all.
torture self.damaged
if [[ $said == *"LEFT OUT: "* ]]; then
    expect_left_out self.damaged
else
    expect 1 "after the power cut: mount ext4"
fi

TORTURE_MARK=$work/timeout torture self.hangs
expect 1 "not done after 3 s"
[ -z "$(marked "$work/timeout")" ] || fail "a check that timed out leaves processes"
expect_put_back "a timeout"
torture self.leaves
expect 1 "left 1 process(es) behind"
ends_by INT 130 self.waits 4
ends_by TERM 143 self.waits 4
ends_by KILL 137 self.alone 2

torture self.tells
expect 0 "1 of 1 checks hold"

# A run of the long form reads all programs: those that are needed here.
mkdir "$work/bin" "$work/lib"
cp "$programs/private_root" "$programs/torture_self" "$work/bin"
cp "$programs"/../lib/libVQRegLib.so "$work/lib"
programs=$work/bin

# Three pieces; what the first run has done the second one finds and adds nothing to.
torture --long self.holds --seed 7 --results "$work/results.json"
expect 0 "turns 50" "largest 9" "About 5 s, of which 5 s are left."
torture --long self.holds --seed 100 --results "$work/results.json"
expect 0 "turns 50" "largest 9" "seed 7," "of which 0 s are left."
# As when it was stopped before the last one, after 80 seconds.
sed -i 's/"pieces": 3/"pieces": 2/; s/"count": 50/"count": 40/; s/"seconds": [^,]*/"seconds": 80/' \
    "$work/results.json"
torture --long self.holds --results "$work/results.json"
expect 0 "turns 60" "About 100 s, of which 20 s are left."
torture --long self.holds --fresh --seed 100 --results "$work/results.json"
expect 0 "turns 50" "largest 102"

# What has failed is run again first, and its commands are there whatever becomes of it.
torture --long self.fails --seed 7 --results "$work/failures.json"
expect 1 "again: scripts/torture self.fails --seed 8 --count 10"
torture --long self.pair.quick self.fails --results "$work/failures.json"
expect 1 "AGAIN   self.fails, which failed: scripts/torture self.fails --seed 7 --count 10" \
    "AGAIN   self.fails, which failed: scripts/torture self.fails --seed 8 --count 10" \
    "turns 2;" "1 of 2 checks hold"
expect_not "turns 4;"
[[ $said == *AGAIN*"ok      self.pair.quick"* ]] || fail "what failed is not run first: $said"
TORTURE_SELF_MENDED=1 torture --long self.fails --results "$work/failures.json"
expect 0 "turns 2;" "held when it was run again: scripts/torture self.fails --seed 8 --count 10"
torture --long self.fails --results "$work/failures.json"
expect 0 "turns 2;" "held when it was run again: scripts/torture self.fails --seed 7 --count 10"
expect_not AGAIN

# What could not run is tried again.
torture --long self.cannot --results "$work/cannot.json"
expect_left_out self.cannot
TORTURE_SELF_ALLOWED=1 torture --long self.cannot --results "$work/cannot.json"
expect 0 "turns 1;" "1 of 1 checks hold"
torture --long self.cannot --results "$work/cannot.json"
expect 0 "turns 1;" "1 of 1 checks hold"

# Nothing that another program or another library has done counts, nor what nobody knows who did. But a
# check does not need the programs of other checks.
torture --long self.holds --seed 7 --results "$work/builds.json"
echo >"$work/bin/torture_kill"
for changed in "$work/lib/libVQRegLib.so" "$work/bin/agent"; do
    torture --long self.holds --seed 100 --results "$work/builds.json"
    expect 0 "largest 9"
    echo >>"$changed"
    torture --long self.holds --seed 100 --results "$work/builds.json"
    expect 0 "self.holds begins anew" "turns 50" "largest 102"
    torture --long self.holds --fresh --seed 7 --results "$work/builds.json"
done
sed -i '/"build"/d' "$work/builds.json"
torture --long self.holds --seed 100 --results "$work/builds.json"
expect 0 "self.holds begins anew" "largest 102"

# Stores have absolute paths, also those beside programs that are named by a relative one.
cd "$work"
programs=bin
torture self.holds.also
expect 0 "1 of 1 checks hold"
