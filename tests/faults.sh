#!/usr/bin/env bash
# Runs the faults that repeat themselves as often as a release is to stand them; the test suite does so less often.
# Takes about three minutes when everything is built. Ends with status 1 if one was not withstood.
cd "$(dirname "$0")/.."
. scripts/common.sh

# PRESET TEST ROUNDS. An end beside the collection is left to the asan preset: in about one of 1,500 such ends tsan's own
# exit waits for ever for its list of threads, when the monitor has long written its last line.
rows() {
    cat <<'END'
release StormOfSignals 10000
release RestartStorm 1000
release ReplacedExecutable 300
release EndsBesideACollection 300
asan EndsBesideACollection 300
tsan ReloadBesideACollection 300
END
}

require_root
# shellcheck disable=SC2086
install_missing $build_packages $test_packages
for preset in release asan tsan; do
    build "$preset" -DMONP_TESTS=ON
done
failed=0
while read -r preset test rounds; do
    say "$test, $rounds rounds, $preset"
    MONP_ROUNDS=$rounds timeout 600 "build/$preset/bin/monp_flow" --gtest_brief=1 --gtest_filter="Fault.$test" </dev/null ||
        failed=1
done < <(rows)
exit "$failed"
