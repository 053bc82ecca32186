#!/usr/bin/env bash
# Installs what the build needs, downloads and unpacks the packages of a cluster, and shows the monitor under Pacemaker:
# three nodes in namespaces of their own, which end with the demo and take everything in them along. Nothing of the
# cluster is installed or started on the machine itself.
cd "$(dirname "$0")" || exit
. scripts/common.sh
. scripts/cluster.sh

limit=60 # seconds; the nodes are gone then, whatever they are doing

require_root
# shellcheck disable=SC2086,SC2154
install_missing $build_packages $cluster_tools
obstacle=$(cluster_obstacle)
[ -z "$obstacle" ] || die "no cluster can run here: $obstacle"
build release -DMONP_TESTS=OFF
say "fetching the cluster's packages"
cluster_unpack || die "the packages cannot be downloaded: $cluster_packages"
cluster_install || die "the package's files cannot be laid out"
cluster_enter $limit examples/cluster/tour.sh || die "the demo failed"
