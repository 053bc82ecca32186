#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. A second run is quick.
cd "$(dirname "$0")"
. scripts/common.sh

require_root
# shellcheck disable=SC2086
install_missing $build_packages $test_packages
build release -DMONP_TESTS=ON
run_tests release
say "test.sh: all tests passed"
