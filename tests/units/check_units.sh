#!/usr/bin/env bash
# check_units.sh EXAMPLES VQREG
#
# Has the examples for the service manager read by those who will read them, without a manager that runs:
# systemd-analyze, systemd-sysusers, systemd-tmpfiles, logrotate. To be run in a private root: it makes
# /cf. Ends with 77 where none of them is installed.
set -euo pipefail
examples=$1
vqreg=$2
work=$(mktemp -d)
trap 'rm -rf "$work" /cf' EXIT
ran=0

fail() {
    echo "check_units: $*" >&2
    exit 1
}

# has PROGRAM: whether it is installed; says it when it is not.
has() {
    command -v "$1" >/dev/null && ran=1 && return 0
    echo "left out: $1 is not installed"
    return 1
}

# The command is not where a manager looks for it.
check_units() {
    local unit
    mkdir "$work/units"
    for unit in "$examples"/*.service "$examples"/*.timer; do
        sed "s|^ExecStart=vqreg|ExecStart=$vqreg|" "$unit" >"$work/units/${unit##*/}"
    done
    for unit in "$work"/units/*; do
        SYSTEMD_UNIT_PATH=$work/units: systemd-analyze verify --man=no "$unit" >"$work/said" 2>&1 ||
            fail "${unit##*/}: $(cat "$work/said")"
        # What it does not know it only mentions.
        ! grep "${unit##*/}" "$work/said" || fail "${unit##*/} is not understood"
    done
}

check_directories() {
    local root=$work/root
    mkdir -p "$root/etc"
    systemd-sysusers --root="$root" "$examples/velquist.sysusers.conf"
    grep -q '^velquist:' "$root/etc/group" || fail "no group velquist"
    grep -q '^velquist:.*appd' "$root/etc/group" || fail "appd is not in the group"
    grep -q '^appd:' "$root/etc/passwd" || fail "no user appd"
    systemd-tmpfiles --root="$root" --create "$examples/velquist.tmpfiles.conf"
    local directory group
    group=$(sed -n 's/^velquist:[^:]*:\([0-9]*\):.*/\1/p' "$root/etc/group")
    for directory in velquist/etc cf/corvanedata/Logs; do
        [ "$(stat -c '%a %u %g' "$root/$directory")" = "775 0 $group" ] ||
            fail "/$directory is $(stat -c '%a %u %g' "$root/$directory")"
    done
}

# Only what nobody has written to for two weeks goes.
check_logs() {
    local logs=/cf/corvanedata/Logs old=RegLibTrace-200101.Log new=RegLibTrace-200102.Log
    mkdir -p "$logs"
    getent group velquist >/dev/null || echo 'velquist:x:64000:' >>/etc/group
    chgrp velquist "$logs"
    chmod 775 "$logs"
    echo old >"$logs/$old"
    echo new >"$logs/$new"
    echo other >"$logs/other.Log"
    touch -d '15 days ago' "$logs/$old" "$logs/other.Log"
    touch -d '13 days ago' "$logs/$new"
    chown 64001:64001 "$logs/$old" "$logs/$new"
    chmod 600 "$logs/$old"
    cp "$examples/velquist.logrotate" "$work/logrotate"
    chmod 644 "$work/logrotate"
    logrotate --debug --state "$work/state" "$work/logrotate" >"$work/said" 2>&1 ||
        fail "logrotate: $(cat "$work/said")"
    ! grep -i 'error\|ignoring\|unknown' "$work/said" || fail "logrotate does not like what it reads"
    printf 'logrotate state -- version 2\n"%s" 2020-1-1-0:0:0\n"%s" 2020-1-1-0:0:0\n' \
        "$logs/$old" "$logs/$new" >"$work/state"
    logrotate --state "$work/state" "$work/logrotate" || fail "logrotate fails"
    [ "$(cd "$logs" && echo *)" = "$new other.Log" ] || fail "logs left: $(ls "$logs")"
    # It has the rights of the group and no others.
    touch -d '15 days ago' "$logs/$old"
    chmod 755 "$logs"
    printf 'logrotate state -- version 2\n"%s" 2020-1-1-0:0:0\n' "$logs/$old" >"$work/state"
    ! logrotate --state "$work/state" "$work/logrotate" >"$work/said" 2>&1 || fail "logrotate does not fail"
    [ -e "$logs/$old" ] || fail "logs are removed with the rights of root"
}

# Who is root only among his own processes has nobody to give a file to.
has_users() {
    touch "$work/given"
    chown 64001:64001 "$work/given" 2>/dev/null && return 0
    echo "left out: files cannot be given to another user here"
    return 1
}

if has systemd-analyze; then check_units; fi
if has_users; then
    if has systemd-sysusers && has systemd-tmpfiles; then check_directories; fi
    if has logrotate; then check_logs; fi
fi
[ "$ran" = 1 ] || exit 77
