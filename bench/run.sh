#!/usr/bin/env bash
# Installs what is missing, builds, measures both libraries and their peers in turns, and compares: ratios of medians,
# each with its goal. Status 1: a goal was missed. A number as argument: repetitions of each measurement.
cd "$(dirname "$0")/.."
. scripts/common.sh

repetitions=${1:-41}

# Adds "name real cpu" of each measurement to the times, medians in nanoseconds. The repetitions of all measurements are
# shuffled, so that a busy moment hits all alike.
measure() {
    "build/release/bin/$1" --benchmark_repetitions="$repetitions" --benchmark_enable_random_interleaving=true \
        --benchmark_min_time=0.02 --benchmark_report_aggregates_only=true --benchmark_format=csv 2>"$times.error" |
        awk -F, '/_median/ { gsub(/"|\/[^,]*_median|_median/, "", $1); print $1, $3, $4 }' >>"$times" ||
        { cat "$times.error" >&2 && die "$1 failed"; }
}

# Rows of ours, peer, goal and text. A peer that is a number is that many nanoseconds; a goal of "-" is none. Processor
# time is compared, which other users of the machine hardly change; of several processes at once, the time they took.
compare() {
    awk '
        function time(name) { return name ~ /^[0-9]+$/ ? name : name ~ /^nine/ ? real[name] : cpu[name] }
        NR == FNR { real[$1] = $2; cpu[$1] = $3; next }
        {
            ours = time($1); peer = time($2); goal = $3
            if (ours == 0 || peer == 0) { print "no time of " $1 " or " $2; missed = 1; next }
            verdict = goal == "-" ? "" : ours / peer <= goal ? " met" : " MISSED"
            missed += verdict == " MISSED"
            $1 = $2 = $3 = ""
            printf "%-58s %7.3f %6s%s\n", substr($0, 4), ours / peer, goal, verdict
        }
        END {
            printf "%-58s %7.3f\n", "floor of the first policy row: trusted opening over plain",
                1 + (cpu["file_trusted"] - cpu["file_plain"]) / cpu["whole<Expat>"]
            exit missed > 0
        }
    ' "$times" - <<'ROWS'
filtered<Tesklog> 5               1.00  record that the level drops / 5 ns
filtered<Tesklog> filtered<Spdlog> -    record that the level drops / spdlog
written<Tesklog>  written<Spdlog> 1.10  record / spdlog flushing each
rotated<Tesklog>  rotated<Spdlog> 1.10  record with rotation / spdlog flushing each
nine<Tesklog>     nine<Spdlog>    1.10  nine processes at once / spdlog flushing each
whole<Teskxml>    whole<Expat>    1.10  policy of 100 lines, opened, read, closed / expat
whole<Teskxml>    whole<Libxml2>  -     policy of 100 lines, opened, read, closed / libxml2
whole<Teskxml>    whole<Pugixml>  -     policy of 100 lines, opened, read, closed / pugixml
load<Teskxml>     load<Expat>     -     opening and parsing alone / expat
load<Teskxml>     load<Libxml2>   -     opening and parsing alone / libxml2
load<Teskxml>     load<Pugixml>   -     opening and parsing alone / pugixml
reads<Teskxml>    reads<Expat>    -     reads of all keys alone / expat and a hash table
reads<Teskxml>    reads<Libxml2>  -     reads of all keys alone / libxml2
reads<Teskxml>    reads<Pugixml>  -     reads of all keys alone / pugixml
whole<Teskxml>    1000000         1.00  policy of 100 lines, opened, read, closed / 1 ms
ROWS
}

require_root
# shellcheck disable=SC2086
install_missing $build_packages $bench_packages
build release -DMONP_TESTS=OFF -DMONP_BENCH=ON
times=$(mktemp)
trap 'rm -f -- "$times" "$times.error"' EXIT
say "measuring, $repetitions repetitions in turns"
measure log_bench
measure xml_bench
printf '%-58s %7s %6s\n' "ratio of medians" "" goal
compare
