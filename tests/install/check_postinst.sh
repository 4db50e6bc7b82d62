#!/usr/bin/env bash
# check_postinst.sh SCRIPT WORK
#
# The script that runs after the installation of the library's package names the programs that use an
# older version of the library, and nobody else. Objects of its own stand for theirs: a program that
# is executed is mapped.
set -euo pipefail

script=$1
mkdir -p "$2"
work=$(mktemp -d "$2/postinst-check-XXXXXX")
started=
finish() {
    [ -z "$started" ] || kill $started 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

fail() {
    echo "check_postinst: $*" >&2
    exit 1
}

# named PROCESS: the line about it.
named() {
    "$script" configure | grep "^  $1 (" || true
}

# start NAME: a process that maps a file of that name, in $!.
start() {
    cp "$(command -v sleep)" "$work/$1"
    "$work/$1" 60 &
    started="$started $!"
    for ((i = 0; i < 200; ++i)); do
        grep -q "/$1\$" "/proc/$!/maps" && return
        sleep 0.05
    done
    fail "$1 is not mapped"
}

for name in CPMutex.%2Fetc%2FVelquist.cfg CPSharedMemory.%2Fa%20b.cfg libVQRegLib.so.1.0.0; do
    start "$name"
    process=$!
    [ "$name" != libVQRegLib.so.1.0.0 ] || {
        [ -z "$(named "$process")" ] || fail "the library that is there is no older one"
        rm "$work/$name"
    }
    [ "$(named "$process")" = "  $process (${name:0:15})" ] || fail "$name: $("$script" configure)"
    [ -z "$("$script" abort-upgrade)" ] || fail "nothing is installed then"
    kill "$process"
    wait "$process" 2>/dev/null || true
    [ -z "$(named "$process")" ] || fail "$name: its program has ended"
done

for name in CPLock.%2Fetc%2FVelquist.cfg CPBlock.%2Fetc%2FVelquist.cfg; do
    start "$name"
    [ -z "$(named "$!")" ] || fail "$name is not of an older version"
done
