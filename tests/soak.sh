#!/usr/bin/env bash
# Lets a monitor live through faults in random order: tests/soak.sh MINUTES [SEED]. What it has written has to agree with
# what was done to it. A run that failed can be had again, but for its timing, by its seed.
cd "$(dirname "$0")/.."
. scripts/common.sh

[[ ${1:-} =~ ^[1-9][0-9]{0,4}$ ]] || die "MINUTES is \"${1:-}\": must be a whole number from 1 to 99999"
[[ ${2:-0} =~ ^[0-9]{1,9}$ ]] || die "SEED is \"$2\": must be a whole number of at most 9 digits"
build release -DMONP_TESTS=ON
export SOAK_SECONDS=$(($1 * 60)) SOAK_SEED=${2:-$RANDOM}
say "soaking for $1 minutes, seed $SOAK_SEED"
timeout "$(($1 * 60 + 120))" build/release/bin/monp_soak --gtest_brief=1 || die "failed, seed $SOAK_SEED"
