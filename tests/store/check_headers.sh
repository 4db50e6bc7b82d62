#!/usr/bin/env bash
# check_headers.sh INCLUDE COMPILER [FLAG...]
#
# Each header of VQRegStore.h can be included alone, by every standard that it is for, without a warning
# of those that this project builds with, nor of some that programs have; an older standard is told what is
# wrong, and so are types that no store has.
set -euo pipefail
include=$1
shift
compiler=("$@")

fail() {
    echo "check_headers: $*" >&2
    exit 1
}

# compile STANDARD TEXT [FLAG...]: the text as a program
compile() {
    "${compiler[@]}" "-std=$1" -fsyntax-only "${@:3}" -I"$include" -x c++ - <<<"$2"
}

# refuses STANDARD TEXT SENTENCE: the text does not compile, and the compiler says why
refuses() {
    local said
    if said=$(compile "$1" "$2" 2>&1); then
        fail "in $1 this compiles: $2"
    fi
    grep -qF "$3" <<<"$said" || fail "in $1 nobody is told \"$3\""
}

standards=(17 20)
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wsign-conversion -Wold-style-cast -Werror)
newest=$(compile c++23 "" 2>/dev/null && echo 23 || echo 2b)
if [ "$newest" = 23 ]; then
    standards+=(23)
    warnings+=(-Wuseless-cast)
fi

cd "$include"
headers=(VQRegStore.h VQRegStore/*.h)
[ ${#headers[@]} -gt 6 ] || fail "there are only ${#headers[@]} headers"
for header in "${headers[@]}"; do
    for standard in "${standards[@]}"; do
        compile "c++$standard" "#include <$header>" "${warnings[@]}" ||
            fail "$header does not stand alone in C++$standard"
    done
done

uses=$(
    cat <<'END'
#include <VQRegStore.h>
enum class Level { low };
enum class Both { low };
template <> struct vqreg::EnumTraits<Level> {
    static constexpr EnumName<Level> names[] = {{Level::low, "low"}};
};
template <> struct vqreg::EnumTraits<Both> {
    static constexpr EnumName<Both> names[] = {{Both::low, "low"}};
    static constexpr Both first = Both::low;
    static constexpr Both last = Both::low;
};
END
)
# inside TEXT: the text in a function with a key
inside() {
    printf '%s\nvoid use(vqreg::Key& key) { %s }\n' "$uses" "$*"
}
compile c++17 "$(inside 'key.set("V", 1); key.get<int>("V"); key.get_or("V", "text"); key.set("V", Level::low);
    key.get<Level>("V"); key.value("V")->as<unsigned long long>(); key.get_or("V", true);
    key.get<bool>("V"); key.set("V", vqreg::Bytes());')" "${warnings[@]}" || fail "a program with these types has warnings"
no='T is no type that a value can be read as'
refuses gnu++17 "$(inside 'key.get<__int128>("V");')" "$no"
refuses gnu++17 "$(inside 'key.set("V", __int128(1));')" "a store has integers"
refuses c++17 "$(inside 'key.get<Both>("V");')" "$no"
refuses c++17 "$(inside 'key.set("V", Both::low);')" "has names or first and last, not both"
refuses c++17 "$(inside 'key.get_or("V", nullptr);')" "a fallback must be a value"
refuses c++14 "#include <VQRegStore.h>" "VQRegStore.h needs C++17"
