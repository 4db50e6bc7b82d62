#!/usr/bin/env bash
# run.sh PROJECT LIBRARY PRIVATE_ROOT PYTHON FILE|types|wheel|documents
#
# Runs the tests of a file of this folder in a private root, with the built library and the module as it lies
# in the sources. types: checks the types of the module, of the tests and of what the documents
# show. wheel: builds the wheel and uses what is in it. documents: runs the Python of the documents.
set -euo pipefail

project=$1
library=$2
private_root=$3
python=$4
what=$5
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$project/python VQREG_HEADER=$project/include/vqreg.h
VQREG_PROGRAMS=$(dirname "$private_root")
export VQREG_PROGRAMS
LD_LIBRARY_PATH=$(dirname "$library")
export LD_LIBRARY_PATH

# needs MODULE PACKAGE: ends the test as skipped without it.
needs() {
    "$python" -c "import $1" 2>/dev/null && return
    echo "run.sh: $python has no $1 (Debian: $2)"
    exit 77
}

tests() {
    needs pytest python3-pytest
    [ "$1" != test_ansible.py ] || needs ansible ansible-core
    exec "$private_root" "$python" -m pytest -q -c /dev/null --rootdir "$project/tests/python" \
        -p no:cacheprovider --tb=short "$project/tests/python/$1"
}

types() {
    needs mypy mypy
    needs pytest python3-pytest
    cd "$project"
    work=$(mktemp -d "$(dirname "$library")/types-XXXXXX")
    trap 'rm -rf "$work"' EXIT
    local document
    for document in README docs/python; do
        sed -n '/^```python$/,/^```$/{/^```/!p}' "$document.md" >"$work/of_${document##*/}.py"
        [ -s "$work/of_${document##*/}.py" ] || fail "$document.md has no Python"
    done
    "$python" -m mypy --strict --cache-dir "$(dirname "$library")/../mypy" python/vqreg tests/python "$work"
}

fail() {
    echo "run.sh: $*" >&2
    exit 1
}

wheel() {
    needs setuptools python3-setuptools
    needs wheel python3-wheel
    work=$(mktemp -d "$(dirname "$library")/wheel-XXXXXX")
    trap 'rm -rf "$work"' EXIT
    CC=false CXX=false env -u SOURCE_DATE_EPOCH "$project/scripts/wheel" "$work" >"$work/log" 2>&1 ||
        fail "$(cat "$work/log")"
    local file=$work/vqreg-$VQREG_VERSION-py3-none-any.whl
    [ -e "$file" ] || fail "there is no ${file##*/}: $(ls "$work")"
    # Who builds it does not matter, and the time is that of the last change.
    local time
    # Without .git of its own, the sources may lie in a repository of something else.
    if [ -e "$project/.git" ] && time=$(git -C "$project" log -1 --format=%ct 2>/dev/null); then
        (umask 077 && SOURCE_DATE_EPOCH=$time "$project/scripts/wheel" "$work/again" >"$work/log" 2>&1) ||
            fail "$(cat "$work/log")"
        cmp "$file" "$work/again/${file##*/}" || fail "the wheel is another one each time"
    fi
    (cd "$work" && "$python" -m zipfile -e "$file" unpacked)
    (cd "$project/python" && find vqreg -name '*.py' -o -name py.typed) | sort >"$work/wanted"
    (cd "$work/unpacked" && find vqreg -type f) | sort | diff "$work/wanted" - ||
        fail "the wheel has not (<) or besides (>)"
    cd "$work" # which is seen in the private root, wherever it is
    PYTHONPATH=$work/unpacked "$private_root" "$python" -c '
import importlib.metadata, os, vqreg
assert vqreg.__file__.startswith(os.environ["PYTHONPATH"]), vqreg.__file__
assert importlib.metadata.version("vqreg") == vqreg.__version__
about = importlib.metadata.metadata("vqreg")
assert "Typing :: Typed" in about.get_all("Classifier") and about["Requires-Python"] == ">=3.10", about
with vqreg.Store("/tmp/store.cfg") as s:
    s["K", "n"] = 1
    assert s["K", "n"] == 1'
}

documents() {
    exec "$private_root" "$python" "$project/tests/documents/check_python.py" \
        "$project/README.md" "$project/docs/python.md"
}

case $what in
    test_*) tests "$what" ;;
    types | wheel | documents) "$what" ;;
    *) fail "unknown: $what" ;;
esac
