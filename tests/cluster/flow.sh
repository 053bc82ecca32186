#!/usr/bin/env bash
# The resource agent and the hooks on a real cluster of three nodes, in namespaces of their own. Run it alone: it needs the machine to itself.
# Prints why it is skipped where no cluster can run; anything else that goes wrong is a failure.
cd "$(dirname "$0")/../.." || exit
. scripts/common.sh
. scripts/cluster.sh

limit=300 # seconds

require_root
# shellcheck disable=SC2086,SC2154
install_missing $build_packages $cluster_tools libxml2-utils
obstacle=$(cluster_obstacle)
if [ -n "$obstacle" ]; then
    say "SKIPPED: the test on a cluster: $obstacle"
    exit 0
fi
build release
if ! cluster_unpack; then
    say "SKIPPED: the test on a cluster: the packages cannot be downloaded: $cluster_packages"
    exit 0
fi
cluster_install || die "the package's files cannot be laid out"
cluster_enter $limit tests/cluster/cases.sh || die "the test on a cluster failed"
