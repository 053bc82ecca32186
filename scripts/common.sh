# Shared by demo.sh, test.sh, bench/run.sh and .ci/run: progress lines, missing packages, a build of one preset.
# Sourced by a script that stands in the top directory.

set -euo pipefail
# What is built can be run by every user, as some tests do.
umask 022

say() {
    printf '== %s\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

require_root() {
    [ "$(id -u)" -eq 0 ] || die "must run as root: it installs packages and makes namespaces"
}

# Installs those of the named Debian packages that are missing; asks apt only when some are.
install_missing() {
    local package missing=()

    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq >/dev/null || die "apt-get update failed"
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null || die "apt-get install failed"
}

# build PRESET [CMAKE OPTIONS]: configures and builds, showing output only where something is wrong.
build() {
    local preset=$1 log
    shift

    log=$(mktemp)
    say "building ($preset)"
    if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
        tail -n 60 "$log"
        rm -f "$log"
        die "the $preset build failed"
    fi
    rm -f "$log"
}

# run_tests PRESET [CTEST OPTIONS]: every test of a build, side by side, since most of them wait.
run_tests() {
    local preset=$1
    shift

    say "testing ($preset)"
    ctest --preset "$preset" -j "$(($(nproc) * 3))" --progress "$@" || die "tests failed ($preset)"
}

build_packages="g++ cmake ninja-build libexpat1-dev libcli11-dev libfmt-dev nlohmann-json3-dev libre2-dev"
test_packages="libgtest-dev libgmock-dev libxml2-utils mandoc util-linux tar gzip dpkg-dev file systemd"
bench_packages="libbenchmark-dev libspdlog-dev libxml2-dev libpugixml-dev"
lint_packages="clang clang-tidy clang-format libclang-rt-14-dev gcovr"
