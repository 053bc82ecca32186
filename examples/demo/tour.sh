#!/usr/bin/env bash
# What demo.sh shows, as process 1 of namespaces of its own: a service is started, killed, recovered and ended.
# Usage: tour.sh INSTALLATION

set -euo pipefail
# shellcheck source=scripts/stub.sh
. "$(dirname "$0")/../../scripts/stub.sh"

home=$1
log=$home/log/monp.log
shown=0
export TESK_HOME=$home

if [ -t 1 ]; then bold=$(printf "\033[1m") plain=$(printf "\033[0m"); else bold="" plain=""; fi

step() {
    printf "\n%s%s%s\n" "$bold" "$*" "$plain"
}

fail() {
    printf 'demo: FAILED: %s\n' "$*" >&2
    [ ! -f "$log" ] || tail -n 20 "$log" >&2
    exit 1
}

die() {
    fail "$@"
}

# The monitor's own lines since the last look, without the source position.
show_log() {
    local total

    total=$(wc -l <"$log")
    sed -n "$((shown + 1)),${total}p" "$log" | sed -E 's/^[^T]*T([0-9:.]+)[^ ]* ([a-z]+) +[^ ]+ [^ ]+ ([^ ]+) [^ ]+ /    \1 \2 \3: /'
    shown=$total
}

# wait_for TEXT: until a line with the text stands in the log that has not been shown yet.
wait_for() {
    local tries

    for tries in {1..150}; do
        ! tail -n "+$((shown + 1))" "$log" 2>/dev/null | grep -qF -- "$1" || return 0
        sleep 0.1
    done
    fail "no line '$1' within $((tries / 10)) seconds"
}

# The pid of the monitor, told by its executable: the namespace holds no process that the demo did not start.
monitor_pid() {
    local process

    for process in /proc/[0-9]*; do
        if [ "$(readlink "$process/exe")" = "$home/bin/monp" ]; then
            basename "$process"
        fi
    done
}

# Takes the place of what an operator would put there: it notes the call and does nothing else.
install_hooks() {
    local hook

    for hook in cl down; do
        # shellcheck disable=SC2016
        printf '#!/bin/sh\necho "${0##*/} $*" >>work/hook.calls\n' >"$home/etc/hook/$hook"
        chmod 0755 "$home/etc/hook/$hook"
    done
}

# The monitor has ended and kept its promises.
check_end() {
    local try

    for try in {1..50}; do
        [ -n "$(monitor_pid)" ] || break
        [ "$try" -lt 50 ] || fail "the monitor is still there"
        sleep 0.1
    done
    [ ! -e "$home/var/lock/monp_trn" ] || fail "the lock file is still there"
    [ "$(cat "$(realpath /sbin)/shutdown.called")" = --help ] || fail "something called shutdown"
}

cover_shutdown
install_hooks
touch "$home/var/lock/monp_trn"

step "1. The launcher's command: monp --dusko. It returns when the service has reported."
start=$(date +%s%N)
"$home/bin/monp" --dusko || fail "the launcher's command ended with $?"
printf '    returned after %d ms with status 0\n' $((($(date +%s%N) - start) / 1000000))
show_log

monitor=$(monitor_pid)
service=$(cat "$home/run/dusko.pid")
step "2. The monitor is process $monitor, the service process $service. The service is killed: kill -9 $service"
kill -KILL "$service"
wait_for "exited. recover is 2."
wait_for "end - (type=dusko ret=0 stat=0)"
wait_for "monp_getservice"

step "3. Its end, the event, the collection of the error logs, and the restart, in the monitor's words:"
show_log
for try in {1..50}; do
    replacement=$(cat "$home/run/dusko.pid" 2>/dev/null) && [ "$replacement" != "$service" ] && break
    [ "$try" -lt 50 ] || fail "no new service"
    sleep 0.1
done
printf '    the service is process %s now; the archive holds:\n' "$replacement"
tar tzf "$home/archive/elog.tar.gz" | sed 's/^/      /'

step "4. SIGUSR2 to the monitor ends the service and the monitor: kill -USR2 $monitor"
kill -USR2 "$monitor"
wait_for "end - (type=dusko ret=0)"
show_log
check_end

step "5. With the action 3, monp --dusko -a 3, the same end stops the cluster daemons; here a hook only notes the call:"
touch "$home/var/lock/monp_trn"
"$home/bin/monp" --dusko -a 3 || fail "the launcher's command ended with $?"
shown=$(wc -l <"$log") # much the same as in step 1
kill -KILL "$(cat "$home/run/dusko.pid")"
wait_for "path=$home/bin/sample_cl bin=sample_cl"
wait_for "end - (type=dusko ret=0)"
show_log
check_end
sed 's/^/    etc\/hook\/cl was called: /' "$home/work/hook.calls"
[ "$(cat "$home/work/hook.calls")" = "cl -t --type monp --nochk" ] || fail "the hook was not called as it should be"

step "Done: the service died and was recovered; the monitor ended with status 0 and left nothing behind."
