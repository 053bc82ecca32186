#!/usr/bin/env bash
# The five acts of cluster-demo.sh on a cluster of three nodes. Runs as process 1 of namespaces of its own.
cd "$(dirname "$0")/../.." || exit
. scripts/common.sh
. scripts/cluster.sh

if [ -t 1 ]; then bold=$(printf '\033[1m') plain=$(printf '\033[0m'); else bold='' plain=''; fi

now_ms() {
    date +%s%3N
}

act() {
    printf '\n%s%s%s\n' "$bold" "$*" "$plain"
}

# tell TEXT: with the time since the last event, in seconds.
tell() {
    local ms=$(($(now_ms) - event))
    printf '  %3d.%d s  %s\n' $((ms / 1000)) $((ms % 1000 / 100)) "$*"
}

happen() {
    printf '           %s\n' "$*"
    event=$(now_ms)
}

# must SECONDS TEXT COMMAND...: tells the text when the command succeeds.
must() {
    local limit=$1 text=$2
    shift 2
    wait_for "$limit" "$@" || fail "$text: it did not come to that within $limit seconds"
    tell "$text"
}

fail() {
    printf 'cluster-demo: FAILED: %s\n' "$*" >&2
    any crm_mon -1 -r >&2 || true
    exit 1
}

kill_service() {
    on "$1" kill -KILL "$(service_pid "$1" "$2")"
}

# restarted NODE TYPE OLD-PID: another process runs the service on the same node.
restarted() {
    local pid
    pid=$(service_pid "$1" "$2") && [ -n "$pid" ] && [ "$pid" != "$3" ]
}

# The operations of the service that Pacemaker has on record. Each one that it ran or missed changes this text.
notes() {
    any cibadmin --query --scope status | sed -n '/<lrm_resource id="'"$1"'"/,/<\/lrm_resource/{s/ .*call-id="\([0-9-]*\)".*rc-code="\([0-9]*\)".*/\1 \2/p}'
}

both_on() {
    runs_on dusko "$1" && runs_on goru "$1"
}

both_elsewhere() {
    runs_elsewhere dusko "$1" && [ "$(service_node dusko)" = "$(service_node goru)" ]
}

set_up() {
    local node

    act "Three nodes are switched on, each with its own processes, network and root directory."
    event=$(now_ms)
    arena_open
    for node in $cluster_nodes; do
        node_start "$node"
        on "$node" install -m 0755 /usr/share/doc/monp/examples/hook/cl /opt/monp/etc/hook/cl
    done
    must 30 "all three are online: corosync and pacemaker run on each" online_are node1 node2 node3
    event=$(now_ms)
    add_resource node1 shop "<group id='shop'>$(primitive dusko 2 type=dusko 'options=-r 3')$(
        primitive goru 2 type=goru 'options=-a 3' allow_drastic=yes)</group>"
    must 10 "Pacemaker started two services on node1, dusko and goru, each with a monitor" both_on node1
}

act_one() {
    local before pid

    act "1. A service dies, twice. Its monitor restarts it, and Pacemaker never notices."
    before=$(notes dusko)
    for _ in 1 2; do
        pid=$(service_pid node1 dusko)
        happen "kill -9 of dusko on node1, process $pid"
        on node1 kill -KILL "$pid"
        must 15 "dusko runs again on node1, as another process" restarted node1 dusko "$pid"
    done
    if [ "$(notes dusko)" != "$before" ] || [ -n "$(failures)" ]; then
        fail "Pacemaker has noticed"
    fi
    echo "           Pacemaker has noted nothing: no failure, no operation"
}

act_two() {
    local pid

    act "2. It goes on dying. Its monitor may restart it three times and then gives up: the services move."
    pid=$(service_pid node1 dusko)
    happen "kill -9 of dusko on node1, the third time"
    on node1 kill -KILL "$pid"
    must 15 "dusko runs again, for the last time on this node" restarted node1 dusko "$pid"
    happen "kill -9 of dusko on node1, the fourth time"
    kill_service node1 dusko
    must 20 "dusko and goru run on another node" both_elsewhere node1
    home=$(service_node dusko)
    echo "           that is $home; Pacemaker's note of it:"
    failures | sed -n 's/.*exitreason="\([^"]*\)".*/             \1/p'
}

act_three() {
    local from=$home

    act "3. The recovery action of goru is 3. When it dies, its monitor has the whole node drained."
    happen "kill -9 of goru on $from"
    kill_service "$from" goru
    must 10 "the monitor's hook has put $from on standby" standby_is "$from" on
    must 20 "the whole group runs on another node" both_elsewhere "$from"
    drained=$from
    home=$(service_node dusko)
    echo "           that is $home"
}

standby_is() {
    any timeout 10 crm_attribute -N "$1" -n standby -G -q -l reboot 2>/dev/null | grep -qx "$2"
}

act_four() {
    local from=$home others

    act "4. A node loses its power. Pacemaker makes sure that it is off, and only then starts its services elsewhere."
    # Somewhere to go: the node of act 2 is free again, as the operator has seen to it.
    any crm_resource -C -r dusko >/dev/null 2>&1
    others=$(cluster_online | tr ' ' '\n' | grep -vx "$from" | paste -s -d ' ')
    happen "the power cord of $from is pulled"
    power_off "$from"
    must 30 "dusko and goru run on another node" both_elsewhere "$from"
    home=$(service_node dusko)
    must 10 "$from is fenced, and $others go on" fenced "$from"
    happen "$from has power again"
    node_start "$from"
    must 30 "$from is back in the cluster" online_are node1 node2 node3
    echo "           the services stay on $home: Pacemaker does not move what runs"
}

fenced() {
    any timeout 10 crm_mon -1 --output-as=xml | grep -q "<fence_event .*target=\"$1\".*status=\"success\""
}

act_five() {
    act "5. The way back: the drained node is used again."
    event=$(now_ms)
    on "$home" crm_attribute -N "$drained" -n standby -D -l reboot >/dev/null
    on "$home" crm_resource -C >/dev/null 2>&1
    tell "crm_attribute -N $drained -n standby -D -l reboot; crm_resource -C"
    on "$home" crm_resource --move -r shop -N "$drained" >/dev/null 2>&1
    must 20 "crm_resource --move -r shop -N $drained: dusko and goru run on $drained" both_on "$drained"
    settle
    [ -z "$(failures)" ] || fail "Pacemaker has noted a failure"
    event=$(now_ms)
    on "$drained" crm_resource -r shop --meta -p target-role -v Stopped >/dev/null 2>&1
    must 20 "target-role=Stopped: both services have ended, as they were asked to" none_runs
}

none_runs() {
    runs_on dusko "" && runs_on goru ""
}

set_up
act_one
act_two
act_three
act_four
act_five

printf '\nStubs called: %s. No node called shutdown, reboot, halt, poweroff, init, telinit or systemctl.\n' "$(stub_calls)"
[ "$(stub_calls)" -eq 0 ] || fail "a stub was called: $(cat "$arena"/shared/stubs/*)"
