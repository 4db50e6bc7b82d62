#!/usr/bin/env bash
# check_layers.sh PROJECT BUILD
#
# scripts/check-layers passes the sources as they are, and finds what is planted in a copy of them. The
# files of the command are short.
set -euo pipefail
project=$1
work=$(mktemp -d "$2/layers-check-XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
    echo "check_layers: $*" >&2
    exit 1
}

# expect FILE LINE MESSAGE: with the line at its end, the file is blamed in these words.
expect() {
    echo "$2" >>"$work/$1"
    local found
    if found=$("$work/scripts/check-layers"); then
        fail "nothing is wrong with $2 in $1"
    fi
    cp "$project/$1" "$work/$1"
    grep -qF -- "$3" <<<"$found" || fail "no \"$3\" in: $found"
}

cp -r "$project"/{scripts,portable,RegLib,include,tools,fuzz,examples} "$work"
"$work/scripts/check-layers" >"$work/log" || fail "$(cat "$work/log")"

expect tools/vqreg/base/FileText.cpp '#include "tools/vqreg/text/Path.h"' \
    'base must not include tools/vqreg/text/Path.h'
expect tools/vqreg/store/LockWatch.h '#include "tools/vqreg/commands/CommandTable.h"' \
    'store must not include tools/vqreg/commands/CommandTable.h'
expect tools/vqreg/text/Words.cpp '#include "Path.h"' '"Path.h" does not name a room of the command'
expect tools/vqreg/main.cpp '#include "tools/vqreg/Command.h"' \
    '"tools/vqreg/Command.h" does not name a room of the command'
expect tools/vqreg/text/Path.h '#include "tools/vqreg/text/Model.h"' 'include one another'
expect tools/vqreg/store/LockInfo.cpp '#include "portable/Mutex.h"' 'what only looks in portable'
expect tools/vqreg/store/LockInfo.cpp '#include "RegLib/store/Handle.h"' 'the command uses RegLib/text'
expect RegLib/text/LineFormat.cpp '#include "RegLib/tree/Tree.h"' \
    'RegLib/text must not include RegLib/tree/Tree.h'

long=$(find "$project/tools/vqreg" -name '*.h' -o -name '*.cpp' | xargs wc -l |
    awk '$2 != "total" && $1 > 250')
[ -z "$long" ] || fail "files of more than 250 lines: $long"
