#!/usr/bin/env bash
# Turns over decisions of the monitor, one at a time, and looks whether its tests notice: tests/mutate.sh [N...], all
# rows or those with these numbers. Works on a copy below build/; ends with status 1 if a row was missed.
cd "$(dirname "$0")/.."
. scripts/common.sh

tree=$PWD/build/mutate
module=src/linux/server/process/monp/src/monp

# FILE | TEXT | REPLACEMENT. The text stands in the file exactly once.
rows() {
    cat <<'END'
monp.cpp | monp_log_open(0, MONP_DEF_LOGSZ) | monp_log_open(4, MONP_DEF_LOGSZ)
monp.cpp |     gmdfilemaked = 0; |     ;
monp.cpp |     monp_delete_mdfile(); |     ;
monp.cpp |     gbmonpend = 0; |     ;
monp.cpp |     monp_log_close(); |     ;
monp_log.cpp | gpmonplog.exchange(nullptr) | gpmonplog.load()
monp_log.cpp | gmonpstate.nlogusers != 0 && nstep | gmonpstate.nlogusers > 1 && nstep
monp_log.cpp | if (gmonpstate.nlogusers == 0) { | if (gmonpstate.nlogusers >= 0) {
monp_startup.cpp | if (nret != 0) { | if (nret > 0) {
monp_startup.cpp | nfuncret = MONP_RET_FAIL_PARAM; | nfuncret = MONP_RET_FAIL_INIT;
monp_startup.cpp | strcmp(gmonpparam.type, gsuffixes | strcmp(gmonpmonpol.type, gsuffixes
monp_startup.cpp | gmonppol.loglevel, gmonppol.logsize | gmonppol.logsize, gmonppol.loglevel
monp_startup.cpp | if (pvalue[0] != '\0' && setenv | if (setenv
monp_startup.cpp | MONP_OPT_NUM - 2 | MONP_OPT_NUM - 3
monp_daemon.cpp | ninx < gmonppol.parent_initto * | ninx <= gmonppol.parent_initto *
monp_daemon.cpp | { SIGCHLD, SIG_DFL } | { SIGCHLD, SIG_IGN }
monp_daemon.cpp | nsig <= MONP_SIG_MAX | nsig < MONP_SIG_MAX
monp_daemon.cpp | gmonpallpol.core != 1 | gmonpallpol.core == 0
monp_daemon.cpp | limit.rlim_max = RLIM_INFINITY; | ;
monp_daemon.cpp | PTHREAD_CREATE_DETACHED | PTHREAD_CREATE_JOINABLE
monp_signal.cpp | SIGUSR1, &gbmonpinited, -1 } | SIGUSR1, &gbmonpinited, 0 }
monp_signal.cpp | gndrained.load() != nend | gndrained.load() != nend - nend + gnrecorded.load()
monp_create_process_svc.cpp | if (gmonpstate.bendtested == 0) { | if (gmonpstate.bendtested != 1) {
monp_signal.cpp | return bval; | return bval != 0 ? bval : bflag.load();
monp_signal.cpp | gnunrecorded.exchange(0) | gnunrecorded.load()
monp_signal.cpp | if (gbmonpinited != 0) { | if (gbmonpinited == 0) {
monp_signal.cpp | pflag == nullptr || *pflag == 0 | pflag == nullptr || *pflag != 0
monp_child.cpp | pchild->ntimer >= pchild->nwait | pchild->ntimer > pchild->nwait
monp_child.cpp | pchild->nwsig = SIGKILL; | pchild->nwsig = SIGTERM;
monp_child.cpp | WTERMSIG(nstat) != SIGUSR1 | WTERMSIG(nstat) != SIGUSR2
monp_child.cpp | _exit(MONP_RET_FAIL_UNKNOWN); | _exit(MONP_RET_FAIL_INIT);
monp_child.cpp | sigaddset(&set, SIGUSR2); | sigaddset(&set, SIGUSR1);
monp_child.cpp | monp_isnodedown(gmonpparam.action) != 0 ? | monp_isnodedown(gmonpparam.action) > 0 ?
monp_child.cpp | if (npid > 0 && npid == getppid()) { | if (npid > 0) {
monp_child.cpp | bsent = npid > 0 ? | bsent = npid == getppid() ?
monp_create_process.cpp |     monp_make_mdfile(); |     ;
monp_create_process.cpp | *pstat = MONP_EXEC_PROCKILL; | *pstat = 0;
monp_create_process.cpp | MONP_WARNING("waitpid() failed. | MONP_ERROR("waitpid() failed.
monp_create_process_svc.cpp | return i < gmonppol.child_initto ? | return i <= gmonppol.child_initto ?
monp_create_process_svc.cpp |     monp_release_launcher(); |     ;
monp_create_process_svc.cpp |         monp_drainsignals(); |         ;
monp_create_process_svc.cpp | if (gmonpstate.breported == 0) { | if (gmonpstate.breported > 0) {
monp_create_process_svc.cpp | pchild->nret > 0 && | pchild->nret >= 0 &&
monp_create_process_svc.cpp | &pchild->nstat, 0); | &pchild->nstat, WNOHANG);
monp_loop.cpp | strcmp(gmonpparam.type, ptypes[ninx]) | strcmp(gmonpmonpol.type, ptypes[ninx])
monp_loop.cpp | prun->nrestart > gmonpparam.restime | prun->nrestart >= gmonpparam.restime
monp_loop.cpp |     gbreload = 0; |     ;
monp_loop.cpp |         monp_drainsignals(); |         ;
monp_loop.cpp | prun->nfuncret = MONP_RET_FAIL_INIT; | prun->nfuncret = MONP_RET_FAIL_UNKNOWN;
monp_loop.cpp | start request. (type=%s)", gmonpparam.type | start request. (type=%s)", gmonpmonpol.type
monp_loop.cpp | prun->nstat == 0 || gmonpparam.action == MONP_ACT_NONE || | prun->nstat == 0 ||
monp_loop.cpp | MONP_EVENT(MONP_EVTID_FAIL_INIT, | MONP_EVENT(MONP_EVTID_FAIL_MON,
monp_loop.cpp | ACT_RESTART, gmonpmonpol.type, prun->nstat | ACT_RESTART, gmonpmonpol.type, prun->npid
monp_recover.cpp | MONP_EVTID_FAIL_HALT_SYSTEM, | MONP_EVTID_FAIL_REBOOT_SYSTEM,
monp_recover.cpp | pcmdline, nstat, errno); | pcmdline, nret, errno);
monp_recover.cpp |     errno = 0; |     ;
monp_recover.cpp | if (WTERMSIG(nret) != 0) { | if (nret < 0) {
monp_waitprocterm.cpp | ntimer >= ntimeout | ntimer > ntimeout
monp_waitprocterm.cpp | if (npid <= 0) { | if (npid < 0) {
monp_elog.cpp |     gmonpstate.bexec = 0; |     ;
monp_elog.cpp | pargv, &nnum, "-d"); | pargv, &nnum, "-l");
monp_getservice.cpp | linkpath[0] == '\0') { | linkpath[0] == '!') {
monp_getservice.cpp | nullptr, alphasort); | nullptr, versionsort);
monp_getservice.cpp | if (*pend != '\0' || nval < 0 | if (nval < 0
monp_getservice.cpp | >= nsize) { | > nsize) {
monp_mdfile.cpp | gmdfilemaked == -1 || monp_usesmarker() == 0 | monp_usesmarker() == 0
monp_mdfile.cpp | else if (unlink(szfile) != 0) { | else if (unlink(szfile) == 0) {
monp_xml.cpp | gmonpldpolnum = nremain; | gmonpldpolnum = 0;
monp_xml.cpp |     gmonpldpolnum--; |     ;
monp_getconfig.cpp | if (psection == szall) { | if (psection != szall) {
monp_policy.cpp | if (*pinitto < 1) { | if (*pinitto < 0) {
monp_policy.cpp | nlen + 1 >= CS_PRG_CAPTION_LEN | nlen + 1 > CS_PRG_CAPTION_LEN
monp_policy.cpp | parent_initto == 0 ? -1 : 0; | parent_initto == 0 ? -1 : -1;
monp_cproc.cpp | nret = monp_xml_unloadpolicy(ptype); | nret = 0;
monp_getopt.cpp | gmonpparam.wait >= MONP_OPT_WAIT_MIN | gmonpparam.wait > MONP_OPT_WAIT_MIN
monp_getopt.cpp | nnum >= nmaxargc | nnum > nmaxargc
END
}

# Brings the copy up to date, leaving alone what has not changed, so that little is built again.
copy_tree() {
    local file

    mkdir -p "$tree"
    git ls-files | while read -r file; do
        cmp -s "$file" "$tree/$file" || cp --parents "$file" "$tree"
    done
    (cd "$tree" && find . -path ./build -prune -o -type f -printf '%P\n') | sort |
        comm -13 <(git ls-files | sort) - | (cd "$tree" && xargs -r rm)
}

build_copy() {
    (cd "$tree" && cmake --build --preset debug) >build/mutate.log 2>&1
}

# Runs the monitor's tests up to the first failure. Where the turn keeps the monitor from ending, the limits do.
test_copy() {
    local suite

    for suite in unit/monp flow; do
        (ulimit -v 2000000 && ctest --test-dir "$tree/build/debug/tests/$suite" --stop-on-failure --timeout 60 \
            -j "$(($(nproc) * 3))") >build/mutate.log 2>&1 || return
    done
}

turn() {
    local number=$1 file=$tree/$module/$2 text=$3 replacement=$4 original
    original=$(<"$file")
    local without=${original//"$text"/}

    [ $((${#original} - ${#without})) -eq ${#text} ] || die "row $number: \"$text\" is not in $2 exactly once"
    printf '%s\n' "${original/"$text"/"$replacement"}" >"$file"
    build_copy || die "row $number does not compile, see build/mutate.log"
    if test_copy; then
        missed+=("$number")
        printf '%2d MISSED  %s: "%s" -> "%s"\n' "$number" "$2" "$text" "$replacement"
    else
        printf '%2d caught  %s: %s\n' "$number" "$2" "$(sed -n '/tests FAILED:/{n;s/.* - //p}' build/mutate.log)"
    fi
    printf '%s\n' "$original" >"$file"
}

mapfile -t table < <(rows)
[ $# -gt 0 ] || set -- $(seq ${#table[@]})
missed=()
copy_tree
(cd "$tree" && cmake --preset debug -DMONP_TESTS=ON >/dev/null)
build_copy && test_copy || die "the tests fail as it is, see build/mutate.log"
for number in "$@"; do
    row=${table[number - 1]}
    file=${row%% | *}
    row=${row#* | }
    turn "$number" "$file" "${row%% | *}" "${row#* | }"
done
say "mutate.sh: $(($# - ${#missed[@]})) of $# caught${missed:+, missed: ${missed[*]}}"
[ ${#missed[@]} -eq 0 ]
