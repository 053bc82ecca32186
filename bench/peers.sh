#!/usr/bin/env bash
# Measures the monitor beside the supervisors that a user would take instead, in the same run: prints a table and draws
# docs/peers.svg. Takes about seven minutes; nothing else should run meanwhile.
cd "$(dirname "$0")/.."
. scripts/common.sh

supervisors="s6 runit openrc supervisor monit"
their_libraries="libskarnet2.13 libs6-2.11 libexecline2.9 libeinfo1 librc1"

# Their packages are unpacked, not installed: installing would start daemons and change what the machine boots with.
unpack_supervisors() {
    local package

    say "unpacking $supervisors"
    mkdir -p "$packages/files"
    # shellcheck disable=SC2086
    (cd "$packages/files" && apt-get update -qq && apt-get download -qq $supervisors $their_libraries) >/dev/null 2>&1 ||
        die "apt-get download failed"
    for package in "$packages"/files/*.deb; do
        dpkg-deb -x "$package" "$packages"
    done
}

# As process 1 of the namespaces, with the name of this machine for the caption.
measure() {
    . scripts/stub.sh
    # these lie where the stub will be
    cp -L -- "$(command -v start-stop-daemon)" "$packages/start-stop-daemon"
    cp -L -- "$(command -v pidof)" "$packages/pidof"
    cover_shutdown
    TMPDIR=$work exec "$build/bin/peers" "$build" "$packages" "$work/installation" docs/peers.svg "$1"
}

require_root
build=$PWD/build/release
if [ "${1:-}" = --inside ]; then
    work=$2 packages=$2/packages
    measure "$3"
    exit
fi
# shellcheck disable=SC2086
install_missing $build_packages $bench_packages strace procps python3-pkg-resources util-linux
build release -DMONP_TESTS=OFF -DMONP_BENCH=ON
work=$(mktemp -d)
packages=$work/packages
trap 'rm -rf -- "$work"' EXIT
chmod 0755 "$work"
unpack_supervisors
examples/demo/layout.sh build/release "$work/installation" >/dev/null || die "the layout failed"
say "measuring"
caption="$(date +%F), $(nproc) cores, $(. /etc/os-release && echo "$PRETTY_NAME"), Linux $(uname -r)"
unshare --mount --pid --fork --mount-proc --kill-child "$0" --inside "$work" "$caption"
