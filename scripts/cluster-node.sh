#!/usr/bin/env bash
# A node of the cluster, as process 1 of its namespaces: makes its root directory, proves that nothing in it can take
# the machine down, starts the cluster's daemons and stays until its power is cut.
# Usage: cluster-node.sh ARENA NAME
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/cluster.sh

arena=$1
node=$2
number=${node#node}

# The machine's root directory is the lowest layer and never written to; no other mount of the machine comes along.
make_root() {
    local device directory=$arena/nodes/$node

    mount --make-rprivate /
    mkdir "$directory/upper" "$directory/work" "$directory/root"
    mount -t overlay -o "nodev,lowerdir=$arena/tree:/,upperdir=$directory/upper,workdir=$directory/work" overlay \
        "$directory/root"
    cd "$directory/root"
    mkdir -p proc sys dev run tmp arena old
    mount -t proc proc proc
    mount -t tmpfs -o mode=0755,nodev tmpfs sys
    mount -t tmpfs -o mode=0755,nodev tmpfs run
    mount -t tmpfs -o mode=1777,nodev tmpfs tmp
    mount -t tmpfs -o mode=0755,nodev tmpfs dev
    for device in null zero full random urandom; do
        : >"dev/$device"
        mount --bind "/dev/$device" "dev/$device"
    done
    ln -s /proc/self/fd dev/fd
    mkdir dev/shm run/lock
    mount -t tmpfs -o mode=1777,nodev tmpfs dev/shm
    mount --bind "$arena/shared" arena
    # The way to the kernel's own switches is read-only, and the one that reboots leads nowhere.
    mount --bind proc/sys proc/sys
    mount -o remount,bind,ro proc/sys
    [ ! -e proc/sysrq-trigger ] || mount --bind /dev/null proc/sysrq-trigger
    pivot_root . old
    cd /
    umount -l /old
    rmdir /old
}

# Each name is written anew, as it may be a link to a program that other names share.
write_stubs() {
    local name place

    for name in $cluster_stubs; do
        for place in /usr/sbin /usr/bin; do
            rm -f "$place/$name"
            # shellcheck disable=SC2016
            printf '#!/bin/sh\necho "%s: $0 $*" >>/arena/stubs/%s\n' "$node" "$node" >"$place/$name"
            chmod 0755 "$place/$name"
        done
    done
}

# Looks at each stub before it is called, with an argument that the real program would answer with its usage.
guard_stubs() {
    local name place record=/arena/stubs/$node before

    before=$(cat "$record" 2>/dev/null || true)
    for name in $cluster_stubs; do
        for place in /sbin /bin /usr/sbin /usr/bin; do
            if [ ! -f "$place/$name" ] || [ -L "$place/$name" ] || ! grep -qF "$record" "$place/$name"; then
                die "$place/$name is not the stub"
            fi
            "$place/$name" --help
            [ "$(tail -n 1 "$record")" = "$node: $place/$name --help" ] || die "$place/$name does not record its call"
        done
    done
    printf '%s' "${before:+$before$'\n'}" >"$record"
}

guard_kernel() {
    local mounts devices

    mounts=$(sed 's/^\([^ ]* \)\{4\}\([^ ]* [^ ]*\) .*- \([^ ]*\) .*/\2 \3/' /proc/self/mountinfo)
    grep -q '^/ .* overlay$' <<<"$mounts" || die "the root directory is not an overlay"
    grep -q '^/proc/sys ro[, ]' <<<"$mounts" || die "/proc/sys can be written"
    [ ! -e /old ] || die "the machine's root directory is in reach"
    [ ! -e /proc/sysrq-trigger ] || [ "$(stat -c %t:%T /proc/sysrq-trigger)" = 1:3 ] ||
        die "/proc/sysrq-trigger is not covered"
    # Watchdogs and disks are among what is not there. A directory lists what is below its mounts, hence not -type c.
    devices=$(find /dev ! -type d ! -type l | sort | paste -s -d ' ')
    [ "$devices" = "/dev/full /dev/null /dev/random /dev/urandom /dev/zero" ] || die "unexpected devices: $devices"
    [ -z "$(find /run /sys -type s -o -type p -o -type f)" ] || die "/run or /sys has something of the machine's"
}

plug_in() {
    touch "/arena/$node.proven"
    until [ -e "/arena/$node.plugged" ]; do sleep 0.02; done
    ip link set lo up
    ip address add "192.0.2.$number/24" dev eth0
    ip link set eth0 up
    guard_network lo eth0
}

# What the packages' scripts would have done.
make_accounts() {
    local path

    hostname "$node"
    grep -q '^haclient:' /etc/group || echo 'haclient:x:189:' >>/etc/group
    grep -q '^hacluster:' /etc/passwd || echo 'hacluster:x:189:189::/var/lib/pacemaker:/usr/sbin/nologin' >>/etc/passwd
    mkdir -p /var/lib/corosync /var/log/corosync
    for path in /var/lib/pacemaker /var/lib/pacemaker/{blackbox,cib,cores,pengine} /var/log/pacemaker; do
        mkdir -p "$path"
        chown hacluster:haclient "$path"
        chmod 0750 "$path"
    done
    install -o hacluster -g haclient -m 0600 /arena/cib.xml /var/lib/pacemaker/cib/cib.xml
}

start_daemons() {
    corosync
    PCMK_logfile=/var/log/pacemaker/pacemaker.log PCMK_logfacility=none \
        setsid pacemakerd >/var/log/pacemaker/daemon.out 2>&1 &
}

[ $$ -eq 1 ] || die "not in a process namespace of its own"
guard_capabilities
guard_network lo
make_root
write_stubs
guard_stubs
guard_kernel
plug_in
make_accounts
start_daemons
touch "/arena/$node.ready"
# Also reaps what is left to it. Nothing else ends a node than its power cord.
while :; do
    sleep 3600 &
    wait $!
done
