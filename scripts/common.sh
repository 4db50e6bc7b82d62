# Sourced by the other scripts: the project's directory and the packages that a command needs.
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# need PACKAGE...: installs with apt what is missing.
need() {
    local missing=()
    local package
    for package in "$@"; do
        if ! dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local run=()
    [ "$(id -u)" -eq 0 ] || run=(sudo)
    echo "Installing: ${missing[*]}"
    # One at a time, when several scripts run beside each other.
    local once=(flock -o "$project/scripts/common.sh")
    "${once[@]}" "${run[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${once[@]}" "${run[@]}" apt-get install -y -qq \
        --no-install-recommends "${missing[@]}" >/dev/null
}

# want PACKAGE...: as need, but what cannot be installed is done without.
want() {
    (need "$@") || echo "Some of these could not be installed: $*" >&2
}

# need_or_end WHAT PACKAGE...: as need, but what cannot be installed, as on another kind of machine, ends
# the script, loudly and in order: the step is left out.
need_or_end() {
    local what=$1
    shift
    (need "$@") && return 0
    echo "LEFT OUT: $what, because these could not be installed: $*" | tee /dev/stderr
    exit 0
}

# build PRESET [CMAKE-ARGUMENT...]: configures and builds, all or what `targets` names; the log is shown
# when it fails.
targets=()
build() {
    local preset=$1
    shift
    local log
    log=$(mktemp)
    if ! { cmake -S "$project" --preset "$preset" "$@" &&
        cmake --build --preset "$preset" ${targets[@]+--target "${targets[@]}"}; } >"$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
