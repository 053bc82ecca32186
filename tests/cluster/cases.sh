#!/usr/bin/env bash
# The cases of flow.sh, as process 1 of the arena. They hold what runs where, told by processes, against what must run.
cd "$(dirname "$0")/../.." || exit
. scripts/common.sh
. scripts/cluster.sh

agent=/usr/lib/ocf/resource.d/monp/service
passed=0

failed() {
    printf 'FAILED: %s\n' "$*" >&2
    any crm_mon -1 -r >&2 || true
    any tail -n 15 /opt/monp/log/monp.log >&2 || true
    exit 1
}

# check TEXT COMMAND...: the command must succeed within 40 seconds.
check() {
    local text=$1
    shift
    wait_for 40 "$@" || failed "$text"
    passed=$((passed + 1))
    printf 'ok %3d s  %s\n' $SECONDS "$text"
}

hook() {
    on "$1" install -m 0755 "/usr/share/doc/monp/examples/hook/$2" "/opt/monp/etc/hook/${2%.stop}"
}

monitor_pid() {
    on "$1" /opt/monp/bin/monpctl status "$2" --fields monitor_pid | head -n 1
}

kill_service() {
    on "$1" kill -KILL "$(service_pid "$1" "$2")"
}

drop() {
    any crm_resource -r "$1" --meta -p target-role -v Stopped >/dev/null 2>&1
    check "$1 has ended" runs_on "$2" ""
    settle
    any cibadmin --delete --scope constraints --xml-text "<rsc_location id='prefer-$1'/>"
    any cibadmin --delete --scope resources --xml-text "<primitive id='$1'/>"
    any crm_resource -C >/dev/null 2>&1 || true
    settle
}

standby_is_on() {
    any timeout 10 crm_attribute -N "$1" -n standby -G -q -l reboot | grep -qx on
}

# 40 restarts, ten of each of four services, beside looks every second: Pacemaker must notice none of them.
restarts() {
    local round type pids="" types="dusko pelkant tamzile goru"

    for type in $types; do
        add_resource node1 "$type" "$(primitive "$type" 1 "type=$type" 'options=-r 0')"
    done
    for round in {1..10}; do
        for type in $types; do
            pids=$(service_pid node1 "$type")
            [ -n "$pids" ] || failed "$type does not run on node1 before its kill $round"
            on node1 kill -KILL "$pids"
        done
        for type in $types; do
            wait_for 30 runs_on "$type" node1 || failed "$type was not restarted after its kill $round"
        done
    done
    [ -z "$(failures)" ] || failed "Pacemaker has noticed a restart: $(failures)"
    for type in $types; do
        check "$type: ten restarts, and it is still on node1" runs_on "$type" node1
    done
    for type in $types; do
        drop "$type" "$type"
    done
}

orphan() {
    local pid

    add_resource node1 dusko "$(primitive dusko 1 type=dusko adopt=yes)"
    pid=$(service_pid node1 dusko)
    on node1 kill -KILL "$(monitor_pid node1 dusko)"
    check "adopt=yes: a new monitor takes the service over" adopted node1 "$pid"
    drop dusko dusko
    add_resource node1 dusko "$(primitive dusko 1 type=dusko)"
    on node1 kill -KILL "$(monitor_pid node1 dusko)"
    check "adopt=no: an orphaned service is ended and runs elsewhere, once" runs_elsewhere dusko node1
    drop dusko dusko
}

adopted() {
    [ "$(service_pid "$1" dusko)" = "$2" ] && [ "$(monitor_pid "$1" dusko)" != - ]
}

held() {
    add_resource node1 dusko "$(stop_timeout=12 primitive dusko 1 type=dusko)"
    on node1 kill -STOP "$(monitor_pid node1 dusko)"
    check "a held monitor and its service are killed, and the service runs elsewhere" runs_elsewhere dusko node1
    drop dusko dusko
}

broken_policy() {
    on node1 sh -c 'cp /opt/monp/etc/policy/dusko.xml /root/keep; echo "<root" >/opt/monp/etc/policy/dusko.xml'
    add_resource node1 dusko "$(primitive dusko 1 type=dusko)"
    check "a policy that is broken on one node: the service runs on another" runs_elsewhere dusko node1
    online_are node1 node2 node3 || failed "a node was lost over a broken policy"
    on node1 sh -c 'cat /root/keep >/opt/monp/etc/policy/dusko.xml'
    drop dusko dusko
}

waiting_hook() {
    on node1 sh -c 'printf "#!/bin/sh\ncrm_attribute -N node1 -n standby -v on -l reboot\ncrm_resource --wait\n" \
        >/opt/monp/etc/hook/cl; chmod 755 /opt/monp/etc/hook/cl'
    add_resource node1 goru "$(stop_timeout=15 primitive goru 1 type=goru 'options=-a 3' allow_drastic=yes)"
    kill_service node1 goru
    check "a hook that waits for Pacemaker: the escalation of the stop ends it" runs_elsewhere goru node1
    any crm_attribute -N node1 -n standby -D -l reboot
    drop goru goru
}

last_node() {
    local node

    hook node1 cl
    add_resource node1 goru "$(primitive goru 1 type=goru 'options=-a 3' allow_drastic=yes)"
    for node in node2 node3; do
        any crm_attribute -N $node -n standby -v on -l reboot
    done
    settle
    kill_service node1 goru
    check "the hook refuses to drain the last node" \
        on node1 grep -q 'stop of cluster failed' /opt/monp/log/monp.log
    ! standby_is_on node1 || failed "the last node is on standby"
    for node in node2 node3; do
        any crm_attribute -N $node -n standby -D -l reboot
    done
    drop goru goru
}

fencing_fails() {
    hook node1 down
    touch "$arena/shared/broken"
    add_resource node1 goru "$(primitive goru 1 type=goru 'options=-a 5' allow_drastic=yes)"
    on node1 sed -i 's/^limit=60/limit=12/' /opt/monp/etc/hook/down
    kill_service node1 goru
    check "fencing fails: the monitor falls back to its shutdown command" \
        grep -q 'shutdown -r now' "$arena/shared/stubs/node1"
    rm "$arena/shared/broken"
    # That call is the point of this case, and the only one.
    [ "$(stub_calls)" -eq 1 ] || failed "more stubs were called: $(cat "$arena"/shared/stubs/*)"
    : >"$arena/shared/stubs/node1"
    any crm_resource -C >/dev/null 2>&1 || true
    settle || true
}

arena_open
for node in $cluster_nodes; do
    node_start "$node"
done
check "three nodes are online" online_are node1 node2 node3
on node3 ocf-tester -n dusko -o type=dusko $agent || failed "ocf-tester"
restarts
orphan
held
broken_policy
waiting_hook
last_node
fencing_fails
[ "$(stub_calls)" -eq 0 ] || failed "stubs were called: $(cat "$arena"/shared/stubs/*)"
echo "stubs called: 0"
echo "$passed passed, 0 failed"
