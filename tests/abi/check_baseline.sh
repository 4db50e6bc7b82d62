#!/usr/bin/env bash
# check_baseline.sh LIBRARY HEADERS BASELINE [--renew]
#
# Compares the binary interface of the shared library (types, layouts, virtual slots, symbols) with
# the one that programs have been built against, and fails on any difference. --renew writes the
# baseline instead: only for a change that running programs survive, an addition, or with a new
# SONAME.
set -euo pipefail

library=$1
headers=$2
baseline=$3

skip() {
    echo "check_baseline: $*"
    exit 77
}

[ "$(uname -m)" = x86_64 ] || skip "the baseline is that of x86_64"
for tool in abidw abidiff; do
    command -v "$tool" >/dev/null || skip "$tool is not installed (Debian: abigail-tools)"
done

if [ "${4:-}" = --renew ]; then
    exec abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
        --no-comp-dir-path --no-corpus-path --short-locs --no-show-locs --type-id-style hash \
        --out-file "$baseline" "$library"
fi
if ! abidiff "$baseline" "$library" >&2; then
    echo "check_baseline: the binary interface is not that of $baseline" >&2
    exit 1
fi
