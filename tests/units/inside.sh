# Run by the manager of check_manager.sh, as a service without any restriction.
cd /
failures=0

complain() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# until_true COMMAND...: tries for half a minute.
until_true() {
    for _ in {1..300}; do
        "$@" && return 0
        sleep 0.1
    done
    complain "in vain: $*"
}

# service NAME LINE...: a service that does one thing, with these lines.
service() {
    local name=$1
    shift
    {
        printf '[Unit]\nDefaultDependencies=no\n[Service]\nType=oneshot\n'
        printf 'StandardError=file:/run/%s.said\n' "$name"
        printf '%s\n' "$@"
    } >"/run/systemd/system/$name.service"
}

directories_are_made() {
    systemd-sysusers /run/velquist.sysusers.conf
    systemd-tmpfiles --create /run/velquist.tmpfiles.conf
    [ "$(stat -c '%a %G' /velquist/etc)" = "775 velquist" ] || complain "/velquist/etc"
    vqreg set App Port 80
    [ -f /velquist/etc/Velquist.cfg ] || complain "the store is not where it belongs"
}

# What a unit gets from EnvironmentFile= is what is in the store.
files_for_units_are_read_as_they_are_meant() {
    local texts=('' ' ' ' both ends	' '\' '\\' 'ends in \' '"' "'" "a\"b'c\`d" '$HOME ${HOME} $$ $(echo gone)'
        '`echo gone`' '\n\t\x41' '#comment' ';comment' 'a=b' '%n %h %%' '~/x' $'\x01\x1b[31m\x7f' 'grüß € 🐧'
        $'\ufeff' $'\ufefffirst' $'in\ufeffside')
    local i wanted=() found=()
    for i in "${!texts[@]}"; do
        vqreg set -t string Texts "T$i" -- "${texts[$i]}" 2>/dev/null
        wanted+=("T$i=${texts[$i]}")
    done
    vqreg export --env Texts >/run/texts.env
    service texts EnvironmentFile=/run/texts.env "ExecStart=/bin/sh -c 'exec /usr/bin/env -0 >/run/texts'"
    systemctl start texts
    mapfile -d '' -t found < <(grep -z '^T[0-9]*=' /run/texts | sort -z -t T -k 2 -n)
    [ "${found[*]@Q}" = "${wanted[*]@Q}" ] || complain "texts: $(diff <(printf '%q\n' "${wanted[@]}") <(printf '%q\n' "${found[@]}"))"
    # As docs/systemd.md shows it: written by a unit before its own program.
    service before 'EnvironmentFile=-/run/before/env' RuntimeDirectory=before \
        "ExecStartPre=/bin/sh -c 'exec vqreg export --env App > /run/before/env'" \
        "ExecStart=/bin/sh -c 'exec /usr/bin/printenv PORT >/run/before.port'"
    systemctl start before
    [ "$(cat /run/before.port)" = 80 ] || complain "no environment before the program"
}

# seen PORT: what the service has written into the store.
seen() {
    [ "$(vqreg get --default none Seen Port)" = "$1" ]
}

# With all its protection, as a user of its own, and again after each change.
the_service_follows_its_settings() {
    local log=/cf/corvanedata/Logs/appd
    printf '#!/bin/sh\nid -nu >>%s; echo "$APP_PORT" >>%s\nvqreg set Seen Port "$APP_PORT"\nexec sleep 1000\n' \
        "$log" "$log" >/usr/local/bin/appd
    chmod +x /usr/local/bin/appd
    sed -i 's|/usr/bin/printenv|/usr/local/bin/appd|' /run/systemd/system/appd.service
    systemctl daemon-reload
    systemctl start appd
    until_true grep -qsx 80 "$log"
    vqreg set App Port 81
    until_true grep -qsx 81 "$log"
    until_true seen 81
    [ "$(sort -u "$log" | xargs)" = "80 81 appd" ] || complain "appd: $(xargs <"$log")"
    systemctl is-active --quiet appd || complain "appd has ended"
    systemctl stop appd
    [ "$(systemctl show -P Result appd)" = success ] || complain "appd did not end well"
}

# The program is ready when it says so, and not its keeper.
readiness_is_told_by_the_program() {
    service ready Type=notify NotifyAccess=all TimeoutStartSec=20 \
        "ExecStart=/usr/local/bin/vqreg run --signal HUP App -- /bin/sh -c 'systemd-notify --ready && exec sleep 1000'"
    sed -i '/^Type=oneshot$/d' /run/systemd/system/ready.service
    systemctl start ready || complain "readiness is not heard: $(cat /run/ready.said)"
    systemctl stop ready
}

old_files_are_removed() {
    local old=/velquist/etc/Velquist.cfg01234567-89ab-4cde-8f01-23456789abcd
    touch -d '1 hour ago' "$old"
    systemctl start vqreg-clean.service || complain "vqreg-clean fails"
    [ ! -e "$old" ] || complain "vqreg-clean leaves old files"
    # As its comment says for a store in /etc.
    sed -e '/^ConditionPathIsDirectory=/d' -e 's|^ReadWritePaths=.*|ReadWritePaths=/etc|' \
        -e 's|^ExecStart=vqreg|ExecStart=vqreg --file /etc/Velquist.cfg|' \
        /run/systemd/system/vqreg-clean.service >/run/systemd/system/clean-etc.service
    old=/etc/${old##*/}
    touch -d '1 hour ago' "$old"
    systemctl start clean-etc.service || complain "vqreg-clean fails in /etc"
    [ ! -e "$old" ] || complain "vqreg-clean leaves old files in /etc"
    systemctl start vqreg-clean.timer || complain "the timer cannot be started"
    [ -n "$(systemctl show -P NextElapseUSecRealtime vqreg-clean.timer)" ] || complain "the timer has no time"
}

# with STATUS LINE...: a service with these options wants to change the store, and ends like that.
number=0
with() {
    local wanted=$1 name=option$((++number)) status
    shift
    vqreg set App Port 80
    service "$name" "$@" 'ExecStart=/usr/local/bin/vqreg --timeout 5 set App Port 90'
    systemctl start "$name" 2>/dev/null || true
    status=$(systemctl show -P ExecMainStatus "$name")
    [ "$status" = "$wanted" ] || complain "$*: $status, not $wanted: $(cat "/run/$name.said")"
    [ "$status" != 0 ] || [ "$(vqreg get App Port)" = 90 ] || complain "$*: the change is not seen"
    [ "$status" = 0 ] || [ "$(vqreg get App Port)" = 80 ] || complain "$*: something has changed"
}

# with_another_store LINE...: a service with these options changes one that nobody else sees.
with_another_store() {
    local name=option$((++number))
    vqreg set App Port 80
    service "$name" "$@" 'ExecStart=/usr/local/bin/vqreg --timeout 5 set App Port 90'
    systemctl start "$name" || complain "$*: $(cat "/run/$name.said")"
    [ "$(vqreg get App Port)" = 80 ] || complain "$*: it is the same store"
    [ "$(vqreg --file /run/root/etc/Velquist.cfg get App Port)" = 90 ] || complain "$*: there is no other store"
}

is_open() {
    vqreg info | grep -q '^open in  *[0-9]'
}

# A root for services: what the system has, without a store.
make_root() {
    local each
    mkdir -p /run/root/{etc,usr,dev,proc,sys,run,tmp,velquist}
    for each in bin lib lib32 lib64 libx32; do
        [ ! -L "/$each" ] || cp -P "/$each" /run/root
    done
    cp /etc/ld.so.cache /run/root/etc
}

# While somebody has the store open.
options_do_what_is_said_of_them() {
    agent 3>/run/answer < <(printf 'open\t/velquist/etc/Velquist.cfg\tVelquist\n' && sleep 1000) &
    local opener=$! option
    until_true is_open
    make_root
    for option in ProtectHome=yes PrivateTmp=yes PrivateDevices=yes PrivateNetwork=yes PrivateUsers=yes \
        NoNewPrivileges=yes CapabilityBoundingSet= ProtectKernelTunables=yes ProtectKernelModules=yes ProtectKernelLogs=yes \
        ProtectControlGroups=yes ProtectClock=yes ProtectHostname=yes ProtectProc=invisible ProcSubset=pid \
        RestrictNamespaces=yes RestrictRealtime=yes RestrictSUIDSGID=yes RestrictAddressFamilies=AF_UNIX \
        LockPersonality=yes MemoryDenyWriteExecute=yes SystemCallArchitectures=native \
        SystemCallFilter=@system-service ProtectSystem=full UMask=0077; do
        with 0 "$option"
    done
    with 0 ProtectSystem=strict ReadWritePaths=/velquist/etc
    with 0 User=appd Group=velquist
    with 7 User=nobody
    with 7 ProtectSystem=strict
    with 3 PrivateIPC=yes
    with 3 InaccessiblePaths=/dev/shm
    with 3 ReadOnlyPaths=/dev/shm
    with 31 'SystemCallFilter=~@ipc' # killed by SIGSYS
    with 3 'SystemCallFilter=~@ipc' SystemCallErrorNumber=EPERM
    with_another_store RootDirectory=/run/root BindReadOnlyPaths=/usr
    with 0 RootDirectory=/run/root BindReadOnlyPaths=/usr BindPaths=/velquist/etc
    with 0 TemporaryFileSystem=/dev/shm # nobody hears of it, see ContainersTest.cpp
    kill "$opener"
    wait "$opener" || true
    with 0 PrivateIPC=yes # nobody else has it open
}

has_opened() {
    grep -qs '^00000000' "/run/$1.answer"
}

# Who comes first with memory of his own keeps all others away.
private_memory_keeps_others_out() {
    cat >/run/first.sh <<'SCRIPT'
{ printf 'open\t/velquist/etc/Velquist.cfg\tVelquist\n'; exec sleep 1000; } | /usr/local/bin/agent 3>/run/first.answer
SCRIPT
    service first PrivateIPC=yes 'ExecStart=/bin/sh /run/first.sh'
    systemctl start --no-block first
    until_true has_opened first
    local status=0
    vqreg --timeout 5 set App Port 81 2>/dev/null || status=$?
    [ "$status" = 3 ] || complain "the store can be opened: $status"
    systemctl stop first
    vqreg set App Port 80 || complain "the store cannot be opened afterwards"
}

no_locks() {
    [ -z "$(find /dev/shm -name 'CPLock.*')" ]
}

# A service that stops takes its user's objects away; a user made for it may go a moment later than it does.
the_end_of_a_service_removes_objects() {
    local remove options
    for remove in yes no dynamic; do
        rm -f /dev/shm/*
        options=(User=appd Group=velquist "RemoveIPC=$remove")
        [ "$remove" != dynamic ] ||
            options=(DynamicUser=yes SupplementaryGroups=velquist ReadWritePaths=/velquist/etc)
        service "remove-$remove" "${options[@]}" \
            'ExecStart=/usr/local/bin/vqreg set App Port 91'
        systemctl start "remove-$remove" || complain "remove-$remove: $(cat "/run/remove-$remove.said")"
        if [ "$remove" != no ]; then
            until_true no_locks
        elif no_locks; then
            complain "RemoveIPC=no: the lock has gone"
        fi
        vqreg set App Port 80 || complain "RemoveIPC=$remove: the store cannot be changed any more"
    done
}

for check in directories_are_made files_for_units_are_read_as_they_are_meant the_service_follows_its_settings \
    readiness_is_told_by_the_program old_files_are_removed options_do_what_is_said_of_them \
    private_memory_keeps_others_out the_end_of_a_service_removes_objects; do
    before=$failures
    $check || complain "$check"
    [ "$before" != "$failures" ] || echo "ok: $check"
done
[ "$failures" = 0 ]
