#!/usr/bin/env bash
# Turns over ten decisions of the loop and of the two starts, one at a time, and looks whether the simulation alone finds
# each. Works on a copy below build/; ends with status 1 if one was missed.
cd "$(dirname "$0")/.."
. scripts/common.sh

tree=$PWD/build/simulate
module=src/linux/server/process/monp/src/monp
missed=0

# FILE | TEXT | REPLACEMENT. The text stands in the file exactly once.
rows() {
    cat <<'END'
monp_loop.cpp | prun->nrestart > gmonpparam.restime | prun->nrestart >= gmonpparam.restime
monp_loop.cpp |     gbreload = 0; |     ;
monp_loop.cpp | prun->nstat == 0 || gmonpparam.action == MONP_ACT_NONE || | prun->nstat == 0 ||
monp_loop.cpp | if (gmonpstate.breported == 0) { | if (gbmonpinited == 0) {
monp_create_process.cpp |     monp_make_mdfile(); |     ;
monp_create_process.cpp | *pstat = MONP_EXEC_PROCKILL; | *pstat = 0;
monp_create_process_svc.cpp | return i < gmonppol.child_initto ? | return i <= gmonppol.child_initto ?
monp_create_process_svc.cpp | pchild->nret > 0 && | pchild->nret >= 0 &&
monp_child.cpp | pchild->ntimer >= pchild->nwait | pchild->ntimer > pchild->nwait
monp_child.cpp | WTERMSIG(nstat) != SIGUSR1 | WTERMSIG(nstat) != SIGUSR2
END
}

build_copy() {
    (cd "$tree" && cmake --build --preset debug --target monp_sim) >build/simulate.log 2>&1
}

# FILE TEXT REPLACEMENT
turn() {
    local file=$tree/$module/$1 original
    original=$(<"$file")
    local without=${original//"$2"/}

    [ $((${#original} - ${#without})) -eq ${#2} ] || die "\"$2\" is not in $1 exactly once"
    printf '%s\n' "${original/"$2"/"$3"}" >"$file"
    build_copy || die "\"$3\" in $1 does not compile, see build/simulate.log"
    if timeout 120 "$tree/build/debug/bin/monp_sim" >build/simulate.log 2>&1; then
        missed=$((missed + 1))
        printf 'MISSED  %s: "%s" -> "%s"\n' "$1" "$2" "$3"
    else
        printf 'found   %s: %s (%s)\n' "$1" "$2" "$(grep -m1 '^seed' build/simulate.log || echo 'no end')"
    fi
    printf '%s\n' "$original" >"$file"
}

mkdir -p "$tree"
git ls-files | while read -r file; do
    cmp -s "$file" "$tree/$file" || cp --parents "$file" "$tree"
done
(cd "$tree" && cmake --preset debug -DMONP_TESTS=ON >/dev/null)
build_copy || die "the copy does not build, see build/simulate.log"
mapfile -t table < <(rows)
for row in "${table[@]}"; do
    rest=${row#* | }
    turn "${row%% | *}" "${rest%% | *}" "${rest#* | }"
done
say "simulate.sh: $((${#table[@]} - missed)) of ${#table[@]} found"
[ "$missed" -eq 0 ]
