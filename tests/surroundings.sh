#!/usr/bin/env bash
# Runs ./test.sh and ./demo.sh, or the given command, as on a machine that is set up otherwise than most: the tree lies
# below a directory that only root can enter, only root can write to /tmp, and everybody can write to /run. All this is
# made in a mount namespace and ends with the command. Packages have to be installed already: apt itself needs a /tmp
# that everybody can write to.
#
# Usage: tests/surroundings.sh [COMMAND [ARGUMENT]...]
cd "$(dirname "$0")/.."
. scripts/common.sh

max_minutes=30

make_surroundings() {
    local tree=$PWD parent

    [ $$ -eq 1 ] || die "not in a process namespace of its own"
    parent=$(dirname "$tree")
    mount -t tmpfs -o mode=0755 tmpfs /tmp
    mount -t tmpfs -o mode=1777 tmpfs /run
    mkdir -p "$parent"
    mount -t tmpfs -o mode=0700 tmpfs "$parent"
    mkdir "$tree"
    # "." is still the tree, while its name leads to the new directory.
    mount --no-canonicalize --bind . "$tree"
    cd "$tree"
    [ "$(stat -c %a /tmp /run "$parent" | paste -s -d ' ')" = "755 1777 700" ] || die "the modes are not set"
    unset TMPDIR
}

run() {
    if [ $# -gt 0 ]; then
        "$@"
    else
        ./test.sh
        ./demo.sh
    fi
}

require_root
if [ "${1:-}" = --inside ]; then
    shift
    make_surroundings
    run "$@"
    exit
fi
case $(dirname "$PWD") in
/ | /tmp | /run) die "the tree is directly below $(dirname "$PWD"): it needs a directory of its own above it" ;;
esac
# Process 1 of a process namespace takes everything along that it started.
timeout "$((max_minutes * 60))" unshare --mount --pid --fork --mount-proc --kill-child "$0" --inside "$@"
say "surroundings.sh: passed"
