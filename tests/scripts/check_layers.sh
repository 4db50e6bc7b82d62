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

planted=()
messages=()

# plant FILE LINE MESSAGE: the line at the end of the file, for which it is to be blamed in these words.
plant() {
    echo "$2" >>"$work/$1"
    planted+=("$1")
    messages+=("$3")
}

# What has been planted is found, all of it, and taken out again.
expect_all() {
    local found
    if found=$("$work/scripts/check-layers"); then
        fail "nothing is wrong with ${planted[*]}"
    fi
    local i
    for i in "${!planted[@]}"; do
        grep -qF -- "${messages[i]}" <<<"$found" || fail "no \"${messages[i]}\" in: $found"
        cp "$project/${planted[i]}" "$work/${planted[i]}"
    done
    planted=()
    messages=()
}

cp -r "$project"/{scripts,portable,RegLib,include,tools,fuzz,examples} "$work"
"$work/scripts/check-layers" >"$work/log" || fail "$(cat "$work/log")"

plant tools/vqreg/base/FileText.cpp '#include "tools/vqreg/text/Path.h"' \
    'base must not include tools/vqreg/text/Path.h'
plant tools/vqreg/store/LockWatch.h '#include "tools/vqreg/commands/Command.h"' \
    'store must not include tools/vqreg/commands/Command.h'
plant tools/vqreg/text/Words.cpp '#include "Path.h"' '"Path.h" does not name a room of the command'
plant tools/vqreg/main.cpp '#include "tools/vqreg/Command.h"' \
    '"tools/vqreg/Command.h" does not name a room of the command'
expect_all
plant tools/vqreg/store/OpenIn.cpp '#include "tools/browse/Screen.h"' \
    '"tools/browse/Screen.h" does not name a room of the command'
plant tools/browse/Pane.h '#include "tools/vqreg/commands/Command.h"' \
    'the screen uses its own files and the lower rooms of the command'
plant tools/browse/Contents.cpp '#include <curses.h>' 'only the screen uses curses'
expect_all
plant tools/browse/Pane.h '#include "tools/browse/Contents.h"' 'These files of the screen include one another'
expect_all
plant tools/vqreg/text/Path.h '#include "tools/vqreg/text/Model.h"' 'include one another'
expect_all
plant tools/vqreg/store/LockInfo.cpp '#include "portable/Mutex.h"' 'what only looks in portable'
expect_all
plant include/VQRegStore/Error.h '#include "VQRegStore/Store.h"' 'include one another'
plant include/VQRegStore/Watch.h '#include "RegLib/text/KeyPath.h"' 'public headers include public headers only'
expect_all
plant RegLib/text/LineFormat.cpp '#include "RegLib/tree/Tree.h"' \
    'RegLib/text must not include RegLib/tree/Tree.h'
expect_all

long=$(find "$project"/tools/{vqreg,browse} -name '*.h' -o -name '*.cpp' | xargs wc -l |
    awk '$2 != "total" && $1 > 250')
[ -z "$long" ] || fail "files of more than 250 lines: $long"
