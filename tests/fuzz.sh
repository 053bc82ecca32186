#!/usr/bin/env bash
# Builds the fuzz targets and runs them one after the other: tests/fuzz.sh [SECONDS], for each, 60 by default. What a
# run finds out is kept in build/fuzz/corpus for the next one; an input that fails a target is kept as
# build/fuzz/failed_*, and belongs into tests/fuzz/corpus once the fault is mended.
cd "$(dirname "$0")/.."
. scripts/common.sh

seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || die "SECONDS is \"$seconds\": must be a whole number above 0"
require_root
# shellcheck disable=SC2086
install_missing $build_packages $test_packages $lint_packages
build fuzz -DMONP_TESTS=ON
for corpus in tests/fuzz/corpus/*; do
    name=$(basename "$corpus")
    learnt=build/fuzz/corpus/$name
    mkdir -p "$learnt"
    say "fuzzing $name for $seconds seconds"
    if ! "build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -timeout=10 -artifact_prefix="build/fuzz/failed_${name}_" \
        "$learnt" "$corpus" >"build/fuzz/$name.log" 2>&1; then
        grep -a -v -e '	NEW ' -e '	REDUCE' "build/fuzz/$name.log" | tail -n 60
        die "$name failed"
    fi
    grep -a '^Done' "build/fuzz/$name.log"
done
say "fuzz.sh: nothing found"
