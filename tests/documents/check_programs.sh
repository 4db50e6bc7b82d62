#!/usr/bin/env bash
# check_programs.sh readme|guide PROJECT LIBRARY WORK PRIVATE_ROOT COMPILER [FLAG...]
#
# readme: builds and runs the programs of README.md as they stand there, one after the other, and compares
# what they print and leave with what README.md says. guide: compiles each piece of code of the user guide.
set -euo pipefail

what=$1
project=$2
library=$3
work=$(mktemp -d "$4/documents-XXXXXX")
private_root=$5
compiler=$6
shift 6
trap 'rm -rf "$work"' EXIT

fail() {
    echo "check_programs: $*" >&2
    exit 1
}

# blocks FILE LANGUAGE: the code blocks of that language, each in a file of its own, by number.
blocks() {
    awk -v language="$2" -v prefix="$work/$2." '
        /^```/ { if (inside) { inside = 0; close(file) } else { inside = 1; name = substr($0, 4)
                 if (name == language) { file = prefix (++count) } else { file = "/dev/null" } } next }
        inside { print > file }' "$1"
    ls "$work/$2."* >/dev/null || fail "$1 has no code in $2"
}

compile() {
    "$compiler" -std=c++11 -Wall -Wextra -Wpedantic -Werror -I"$project/include" "$@"
}

# said WORDS: what the sentence of README.md that has these words before it puts between backquotes.
said() {
    sed -n "s/.*$1 \`\([^\`]*\)\`.*/\1/p" "$project/README.md"
}

readme() {
    local link=("$library" -Wl,-rpath,"$(dirname "$library")")
    blocks "$project/README.md" cpp
    blocks "$project/README.md" "cpp store"
    blocks "$project/README.md" c
    mv "$work/cpp.1" "$work/program.cpp"
    mv "$work/cpp store.1" "$work/store.cpp"
    [ "$(wc -l <"$work/program.cpp")" -le 30 ] || fail "the program of README.md has become long"
    compile "$@" "$work/program.cpp" "${link[@]}" -o "$work/program"
    compile -std=c++17 "$@" "$work/store.cpp" "${link[@]}" -o "$work/store"
    gcc -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$project/include" "$@" -x c "$work/c.1" -x none \
        "${link[@]}" -o "$work/in_c"
    said "It prints" >"$work/said"
    awk '/^It prints/ { after = 1 } after && /^```/ { if (inside) exit; inside = 1; next }
         inside' "$project/README.md" >>"$work/said"
    said "program above, this prints" >>"$work/said"
    said "in C, this prints" >>"$work/said"
    [ "$(wc -l <"$work/said")" -gt 6 ] || fail "README.md does not say what its programs do"
    local status=0
    "$private_root" /bin/sh -c "\"$work/program\" && cat /tmp/readme.cfg && \"$work/store\" && \"$work/in_c\"" \
        >"$work/done" || status=$?
    [ "$status" -ne 77 ] || exit 77
    diff "$work/said" "$work/done" || fail "README.md says (<) other than its programs do (>)"
}

guide() {
    blocks "$project/docs/user-guide.md" c
    for piece in "$work"/c.*; do
        gcc -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$project/include" -fsyntax-only -x c "$piece"
    done
    blocks "$project/docs/user-guide.md" "cpp prelude"
    blocks "$project/docs/user-guide.md" cpp
    local count=0
    for piece in "$work"/cpp.*; do
        count=$((count + 1))
        {
            cat "$work/cpp prelude.1"
            echo "void piece(); void piece() {"
            cat "$piece"
            echo "}"
        } >"$work/piece.cpp"
        compile -fsyntax-only -Wno-unused-variable "$work/piece.cpp" || fail "$(cat "$piece")"
    done
    [ "$count" -ge 7 ] || fail "the user guide has only $count pieces of code"
    guide_of_store
}

# Those of VQRegStore.h, of which some stand outside of functions.
guide_of_store() {
    local count=0
    rm "$work"/cpp.* "$work/cpp prelude."*
    blocks "$project/docs/user-guide.md" "cpp store types"
    mv "$work/cpp store types.1" "$work/types"
    blocks "$project/docs/user-guide.md" "cpp store"
    for piece in "$work/types" "$work/cpp store."*; do
        count=$((count + 1))
        {
            printf '#include <%s>\n' VQRegStore.h iostream
            [ "$piece" = "$work/types" ] || echo "int main() {"
            cat "$piece"
            [ "$piece" = "$work/types" ] || echo "}"
        } >"$work/piece.cpp"
        compile -std=c++17 -fsyntax-only -Wno-unused-variable "$work/piece.cpp" || fail "$(cat "$piece")"
    done
    [ "$count" -ge 5 ] || fail "the user guide has only $count pieces of code with VQRegStore.h"
}

case $what in
    readme | guide) "$what" "$@" ;;
    *) fail "unknown: $what" ;;
esac
