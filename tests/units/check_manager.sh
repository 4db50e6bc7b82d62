#!/usr/bin/env bash
# check_manager.sh --outside EXAMPLES VQREG LIBRARY AGENT
#
# Starts a service manager as the first process of a pid namespace, with an IPC and a network namespace, a
# /run, a /dev/shm and a cgroup of its own, and gives it the examples: the service follows its settings,
# each option that is said to cut a service off does, files for units are read as they are meant. To be
# run in a private root. Ends with 77 where no manager can be run.
set -euo pipefail
examples=$2
vqreg=$3
library=$4
agent=$5
here=$(cd "$(dirname "$0")" && pwd)

# An /etc of the manager's own is there already. Programs lie where ProtectHome= and PrivateTmp= hide
# nothing.
prepare() {
    mount --make-rprivate /
    mount -t tmpfs tmpfs /run
    mount -t tmpfs -o mode=1777 tmpfs /dev/shm
    mount -t tmpfs tmpfs /usr/local/bin
    mount -t tmpfs tmpfs /usr/local/lib
    umount -R /sys/fs/cgroup 2>/dev/null || true
    mount -t cgroup2 cgroup2 /sys/fs/cgroup
    mkdir -p /run/lock /run/systemd/system
    cp "$vqreg" /usr/local/bin/vqreg
    cp "$library" "/usr/local/lib/$(basename "$library" | sed 's/\(\.so\.[0-9]*\).*/\1/')"
    cp "$agent" /usr/local/bin/agent
    ldconfig
    cp "$here/inside.sh" /usr/local/bin/inside
    cp "$examples"/*.service "$examples"/*.timer /run/systemd/system
    cp "$examples"/*.conf /run
    cat >/run/systemd/system/inside.service <<'UNIT'
[Unit]
DefaultDependencies=no
[Service]
Type=oneshot
ExecStart=/bin/bash -c '/bin/bash -eu /usr/local/bin/inside >/run/said 2>&1; echo $? >/run/result.new; mv /run/result.new /run/result'
UNIT
    export container=lxc LC_ALL=C.UTF-8
    exec /lib/systemd/systemd --system --unit=inside.service --log-target=null
}

skip() {
    echo "check_manager: $*"
    exit 77
}

if [ "$1" = --prepare ]; then
    prepare
fi
[ -x /lib/systemd/systemd ] || skip "systemd is not installed"
[ "$(id -u)" = 0 ] || skip "only root can run a service manager"
hierarchy=$(sed -n 's/^[^ ]* \([^ ]*\) cgroup2 .*/\1/p' /proc/self/mounts | head -1)
[ -n "$hierarchy" ] || skip "there is no cgroup2"
group=$hierarchy/vqreg-test-$$
mkdir "$group" 2>/dev/null || skip "no cgroup can be made"
manager=
clean() {
    [ -z "$manager" ] || { kill -KILL "$manager" && wait "$manager"; } 2>/dev/null || true
    # Until the kernel has noticed the end of all.
    for _ in {1..100}; do
        find "$group" -depth -type d -exec rmdir {} + 2>/dev/null && break
        sleep 0.05
    done
}
trap clean EXIT
log=$(mktemp)
(
    echo "$BASHPID" >"$group/cgroup.procs" || exit 77
    exec unshare --pid --fork --mount --ipc --uts --net --cgroup --mount-proc --kill-child \
        "$0" --prepare "$examples" "$vqreg" "$library" "$agent"
) >"$log" 2>&1 </dev/null &
manager=$!

inside() {
    local first
    first=$(pgrep -P "$manager" | head -1)
    echo "/proc/${first:-none}/root/run"
}
for _ in {1..900}; do
    [ -e "$(inside)/result" ] && break
    kill -0 "$manager" 2>/dev/null || break
    sleep 0.1
done
if [ ! -e "$(inside)/said" ]; then
    cat "$log"
    rm -f "$log"
    skip "no service manager can be run here"
fi
rm -f "$log"
cat "$(inside)/said"
[ "$(cat "$(inside)/result" 2>/dev/null)" = 0 ]
