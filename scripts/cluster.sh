# Three nodes on one machine: what the demo of the cluster and its test share. Sourced by a script that stands in the
# top directory, after scripts/common.sh.
#
# There are three layers, and each ends with the one around it. The machine: nothing is installed or started there, the
# packages are downloaded and unpacked below build/cluster. The arena: namespaces with a bridge that leads nowhere; its
# process 1 is the script that plays, and it pulls the power cords. The nodes: namespaces in the arena, each with a root
# directory of its own (scripts/cluster-node.sh).
#
# shellcheck shell=bash

cluster_packages="pacemaker pacemaker-cli-utils corosync resource-agents"
# On the machine: for the namespaces, the network and the unpacking.
# shellcheck disable=SC2034 # the callers use it
cluster_tools="util-linux iproute2 dpkg apt procps"
cluster_nodes="node1 node2 node3"
# Every command that could take a machine down. A node has a stub in the place of each.
# shellcheck disable=SC2034 # the nodes' script uses it
cluster_stubs="shutdown reboot halt poweroff init telinit systemctl"
# CAP_SYS_MODULE 16, CAP_SYS_RAWIO 17, CAP_SYS_BOOT 22, CAP_SYS_TIME 25: nothing here may have them.
cluster_forbidden=$((1 << 16 | 1 << 17 | 1 << 22 | 1 << 25))

# ---- on the machine ----------------------------------------------------------------------------------------------

# Prints why no cluster can run here, or nothing. Tries what it needs instead of asking for versions.
cluster_obstacle() {
    local scratch

    [ "$(id -u)" -eq 0 ] || { echo "not root"; return; }
    scratch=$(mktemp -d)
    # shellcheck disable=SC2016
    unshare --mount --pid --net --uts --ipc --fork --kill-child sh -c '
        mount -t tmpfs tmpfs "$1" || { echo "no tmpfs"; exit; }
        mkdir "$1/tree" "$1/upper" "$1/work" "$1/root"
        mount -t overlay -o "lowerdir=$1/tree:/,upperdir=$1/upper,workdir=$1/work" overlay "$1/root" ||
            { echo "no overlay file system"; exit; }
        ip link add bridge0 type bridge || { echo "no network bridge"; exit; }
        ip link add veth0 type veth peer name veth1 || { echo "no veth devices"; exit; }
    ' sh "$scratch" 2>/dev/null || echo "no namespaces"
    rmdir "$scratch"
}

# Downloads the packages that are not installed here, and unpacks them; no maintainer script runs. Fails if it cannot.
cluster_unpack() {
    local debs=build/cluster/debs tree=build/cluster/packages package

    mkdir -p "$debs/partial"
    # What is missing depends on the machine: one that was given a package since needs another download.
    dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}\n' 2>/dev/null | sort >build/cluster/installed.now
    if [ -e "$tree.done" ] && cmp -s build/cluster/installed.now build/cluster/installed; then
        return 0
    fi
    rm -rf "$tree" "$tree.done" "$debs"/*.deb
    # shellcheck disable=SC2086
    cluster_download $cluster_packages || { apt-get update -qq >/dev/null && cluster_download $cluster_packages; } ||
        return 1
    mkdir -p "$tree"
    for package in "$debs"/*.deb; do
        [ ! -e "$package" ] || dpkg-deb -x "$package" "$tree" || return 1
    done
    follow_links "$tree" || return 1
    mv build/cluster/installed.now build/cluster/installed
    touch "$tree.done"
}

cluster_download() {
    apt-get --download-only --no-install-recommends -y -qq -o "Dir::Cache::archives=$PWD/build/cluster/debs" \
        -o Debug::NoLocking=1 install "$@" >/dev/null 2>&1
}

# Moves what a package has in a directory that is a link on this machine, which it would hide otherwise.
follow_links() {
    local name

    for name in bin sbin lib lib64; do
        if [ -L "/$name" ] && [ -d "$1/$name" ]; then
            mkdir -p "$1/usr/$name" && cp -a "$1/$name/." "$1/usr/$name" && rm -rf "${1:?}/$name" || return 1
        fi
    done
}

# The files of this project's package, as it would install them.
cluster_install() {
    local tree=$PWD/build/cluster/monp component

    rm -rf "$tree"
    for component in program system; do
        DESTDIR=$tree cmake --install build/release --component "$component" >/dev/null || return 1
    done
    follow_links "$tree"
}

# cluster_enter SECONDS SCRIPT [ARGUMENTS]: runs the script as process 1 of the arena, at most that long. The capability
# to reboot is gone before the first namespace is made.
cluster_enter() {
    local limit=$1 directory status=0
    shift

    directory=$(mktemp -d)
    # In the foreground, so that an interrupt reaches the arena, whose end is the end of all that runs in it.
    CLUSTER_ARENA=$directory timeout --foreground --signal=KILL "$limit" \
        setpriv --bounding-set=-sys_boot,-sys_module,-sys_rawio,-sys_time --inh-caps=-all \
        unshare --mount --pid --net --uts --ipc --fork --kill-child --mount-proc "$@" || status=$?
    rmdir "$directory" || status=1
    [ $status -ne 137 ] || say "it did not end within $limit seconds"
    return $status
}

# ---- guards, for the arena and the nodes -------------------------------------------------------------------------

# No process here can get a forbidden capability, also not by running a program of root's.
guard_capabilities() {
    local set

    for set in CapInh CapPrm CapEff CapBnd CapAmb; do
        set=$(sed -n "s/^$set:[[:space:]]*//p" /proc/self/status)
        [ $((0x${set:-ffffffff} & cluster_forbidden)) -eq 0 ] || die "a capability to take the machine down is left"
    done
}

# guard_network DEVICE...: there is no other device, so no way out.
guard_network() {
    local found

    found=$(ip -o link show | sed 's/^[0-9]*: \([^:@]*\).*/\1/' | sort | paste -s -d ' ')
    [ "$found" = "$(printf '%s\n' "$@" | sort | paste -s -d ' ')" ] || die "unexpected network devices: $found"
    [ -z "$(ip route show default; ip -6 route show default)" ] || die "there is a way out of the network"
}

# ---- in the arena ------------------------------------------------------------------------------------------------

arena_open() {
    arena=$CLUSTER_ARENA
    [ $$ -eq 1 ] || die "not in a process namespace of its own"
    guard_capabilities
    guard_network lo
    trap 'exit 130' INT TERM
    mount --make-rprivate /
    mount -t tmpfs -o mode=0755 tmpfs "$arena"
    mkdir "$arena/tree" "$arena/shared" "$arena/shared/requests" "$arena/shared/stubs" "$arena/nodes"
    cp -a build/cluster/packages/. build/cluster/monp/. "$arena/tree"
    cp -a examples/cluster/fence_arena "$arena/tree/usr/sbin/fence_arena"
    write_corosync_conf >"$arena/tree/etc/corosync/corosync.conf"
    write_cib >"$arena/shared/cib.xml"
    ip link set lo up
    ip link add cluster0 type bridge
    ip link set cluster0 up
    power_controller &
    exec 3>&1
}

write_corosync_conf() {
    local node number=0

    cat <<'END'
totem {
    version: 2
    cluster_name: arena
    transport: knet
    token: 1000
    crypto_cipher: none
    crypto_hash: none
}
system {
    sched_rr: no
    move_to_root_cgroup: no
}
logging {
    to_syslog: no
    to_stderr: no
    to_logfile: yes
    logfile: /var/log/corosync/corosync.log
    timestamp: hires
}
quorum {
    provider: corosync_votequorum
}
nodelist {
END
    for node in $cluster_nodes; do
        number=$((number + 1))
        printf '    node {\n        name: %s\n        nodeid: %d\n        ring0_addr: 192.0.2.%d\n    }\n' \
            "$node" $number $number
    done
    echo "}"
}

# A first configuration, so that the cluster need not be told step by step: the first DC is elected after 2 s instead of
# 20, a busy machine slows nothing down, and there is a fencing device, without which no resource would start.
write_cib() {
    cat <<END
<cib validate-with="pacemaker-3.9" epoch="1" num_updates="0" admin_epoch="0">
 <configuration>
  <crm_config>
   <cluster_property_set id="cib-bootstrap-options">
    <nvpair id="opt-dc" name="dc-deadtime" value="2s"/>
    <nvpair id="opt-load" name="load-threshold" value="100000%"/>
    <nvpair id="opt-stonith" name="stonith-enabled" value="true"/>
    <nvpair id="opt-stonith-timeout" name="stonith-timeout" value="10s"/>
    <nvpair id="opt-fail" name="start-failure-is-fatal" value="true"/>
   </cluster_property_set>
  </crm_config>
  <nodes/>
  <resources>
   <primitive id="fencing" class="stonith" type="fence_arena">
    <instance_attributes id="fencing-attributes">
     <nvpair id="fencing-hosts" name="pcmk_host_list" value="$cluster_nodes"/>
    </instance_attributes>
   </primitive>
  </resources>
  <constraints/>
 </configuration>
 <status/>
</cib>
END
}

# Answers the fence agents: a request is a file with a node's name, its answer takes the request away. A device that is
# told to be broken answers nothing. It runs beside the script, as the nodes may ask at any time.
power_controller() {
    local request node

    while :; do
        for request in "$arena"/shared/requests/*.ask; do
            if [ ! -e "$request" ] || [ -e "$arena/shared/broken" ]; then
                continue
            fi
            node=$(basename "$request" .ask)
            [ ! -e "$arena/nodes/$node.pid" ] || power_off "$node"
            rm -f "$request"
        done
        sleep 0.1
    done
}

# The node is gone at once, with all that runs in it. Its process is one that this script started.
power_off() {
    local process

    process=$(cat "$arena/nodes/$1.pid") || return 0
    rm -f "$arena/nodes/$1.pid"
    kill -KILL "$process" 2>/dev/null || true
    while [ -e "/proc/$process" ] && ! grep -q '^State:.Z' "/proc/$process/status" 2>/dev/null; do sleep 0.02; done
}

node_is_up() {
    [ -e "$arena/nodes/$1.pid" ]
}

# node_start NAME: gives the node power. It joins by itself; see cluster_online.
node_start() {
    local node=$1 number=${1#node} process

    rm -rf "${arena:?}/nodes/$node" "$arena/shared/$node".*
    mkdir "$arena/nodes/$node"
    unshare --mount --pid --net --uts --ipc --fork --kill-child scripts/cluster-node.sh "$arena" "$node" \
        >"$arena/nodes/$node.out" 2>&1 </dev/null &
    node_reaches proven "$node" $!
    process=$(cat "/proc/$!/task/$!/children")
    process=${process%% *}
    # The node has proved that it has no other device, and the second end of the pair is never anywhere else.
    ip link add "port$number" type veth peer name eth0 netns "$process"
    ip link set "port$number" master cluster0 up
    : >"$arena/shared/$node.plugged"
    node_reaches ready "$node" $!
    echo "$process" >"$arena/nodes/$node.pid"
}

# node_reaches STEP NODE PID: waits until the node says so.
node_reaches() {
    local limit=$((SECONDS + 30))

    until [ -e "$arena/shared/$2.$1" ]; do
        if [ ! -e "/proc/$3/exe" ] || [ $SECONDS -ge $limit ]; then
            die "$2 is not $1: $(cat "$arena/nodes/$2.out")"
        fi
        sleep 0.02
    done
}

# on NODE COMMAND...: runs a command in a node.
on() {
    local process
    process=$(cat "$arena/nodes/$1.pid") || die "$1 is off"
    shift
    nsenter --target "$process" --mount --pid --net --uts --ipc -- env -i \
        PATH=/usr/sbin:/usr/bin:/sbin:/bin TESK_HOME=/opt/monp "$@" </dev/null
}

# any COMMAND...: the same in the first node that has power.
any() {
    local node
    for node in $cluster_nodes; do
        if node_is_up "$node"; then
            on "$node" "$@"
            return
        fi
    done
    die "no node has power"
}

# wait_for SECONDS COMMAND...: until the command succeeds; fails when the time is over. The time is that of the clock,
# as a command takes its own.
wait_for() {
    local limit=$((SECONDS + $1 + 1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -lt $limit ] || return 1
        sleep 0.1
    done
}

# The names of the nodes that are online, in their order.
cluster_online() {
    any timeout 10 crm_mon -1 --output-as=xml 2>/dev/null |
        sed -n 's/^ *<node name="\([^"]*\)".* online="true".* pending="false".*/\1/p' | sort | paste -s -d ' '
}

online_are() {
    [ "$(cluster_online)" = "$*" ]
}

# service_node TYPE: the nodes on which the service runs, told by its processes and not by what Pacemaker believes.
service_node() {
    local node
    for node in $cluster_nodes; do
        if node_is_up "$node" && [ -n "$(processes "$node" "sample_$1")" ]; then
            echo "$node"
        fi
    done | paste -s -d ' '
}

# processes NODE PROGRAM: the pids, in the node, of the processes that run a program of the installation.
processes() {
    # shellcheck disable=SC2016
    on "$1" sh -c 'for process in /proc/[0-9]*; do
        [ "$(readlink "$process/exe" 2>/dev/null)" != "$1" ] || echo "${process#/proc/}"
    done' sh "/opt/monp/bin/$2"
}

# The service's processes that have not ended; its children have their own programs.
service_pid() {
    processes "$1" "sample_$2" | head -n 1
}

runs_on() {
    [ "$(service_node "$1")" = "$2" ]
}

runs_elsewhere() {
    local node
    node=$(service_node "$1")
    [ -n "$node" ] && [ "$node" != "$2" ] && [ "${node#* }" = "$node" ]
}

# Calls of stubs in all nodes, without those that prove the stubs.
stub_calls() {
    cat "$arena"/shared/stubs/* 2>/dev/null | grep -c . || true
}

# primitive ID LOOK [PARAMETER=VALUE...]: a resource, as the documentation recommends it but for shorter times. LOOK is
# the interval of its monitor operation in seconds.
primitive() {
    local id=$1 look=$2 parameter
    shift 2

    echo "<primitive id='$id' class='ocf' provider='monp' type='service'><instance_attributes id='$id-attributes'>"
    for parameter; do
        echo "<nvpair id='$id-${parameter%%=*}' name='${parameter%%=*}' value='${parameter#*=}'/>"
    done
    cat <<END
</instance_attributes><meta_attributes id='$id-meta'>
<nvpair id='$id-threshold' name='migration-threshold' value='1'/>
<nvpair id='$id-stickiness' name='resource-stickiness' value='100'/>
</meta_attributes><operations>
<op id='$id-start' name='start' interval='0' timeout='30s'/>
<op id='$id-stop' name='stop' interval='0' timeout='${stop_timeout:-30}s'/>
<op id='$id-monitor' name='monitor' interval='${look}s' timeout='20s'/>
</operations></primitive>
END
}

# add_resource NODE ID XML: and waits until it runs. It prefers the node as long as nothing speaks against it.
add_resource() {
    any cibadmin --modify --allow-create --scope configuration --xml-text "<configuration><resources>$3</resources>
        <constraints><rsc_location id='prefer-$2' rsc='$2' node='$1' score='50'/></constraints></configuration>" &&
        settle
}

# Until Pacemaker has nothing more to do. What a resource is worth is told by its processes.
settle() {
    any timeout 30 crm_resource --wait >/dev/null
}

# Failures that Pacemaker has noticed and not forgotten, one a line.
failures() {
    any timeout 10 crm_mon -1 --output-as=xml | sed -n 's/^ *<failure //p'
}
