#!/usr/bin/env bash
# Installs what is missing, builds, and shows the monitor at work on the sample installation: in a temporary directory
# and in mount and process namespaces of its own, which end with the demo and take everything in them along.
cd "$(dirname "$0")"
. scripts/common.sh

require_root
# shellcheck disable=SC2086
install_missing $build_packages tar gzip util-linux
build release -DMONP_TESTS=OFF

directory=$(mktemp -d)
trap 'rm -rf -- "$directory"' EXIT
chmod 0755 "$directory"
examples/demo/layout.sh build/release "$directory/installation" >/dev/null || die "the layout failed"
# --kill-child: an interrupted demo leaves nothing running.
unshare --mount --pid --fork --mount-proc --kill-child examples/demo/tour.sh "$directory/installation" ||
    die "the demo failed"
