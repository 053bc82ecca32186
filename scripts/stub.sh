# shellcheck shell=bash
# Sourced by what runs the monitor in namespaces of its own: a stub in the place of /sbin/shutdown.

# The monitor can halt a node: nothing but a stub may be there for it. The whole directory is covered, since the name in
# it may be a link to a program that other names share. Ends the script when the stub is not in place.
cover_shutdown() {
    local stub

    [ $$ -eq 1 ] || die "not in a process namespace of its own"
    stub=$(dirname "${BASH_SOURCE[0]}")/shutdown_stub
    mount -t tmpfs -o mode=0755 tmpfs "$(realpath /sbin)"
    install -m 0755 -- "$stub" /sbin/shutdown
    if [ -L /sbin/shutdown ] || [ "$(stat -f -c %T /sbin/shutdown)" != tmpfs ] || ! cmp -s "$stub" /sbin/shutdown; then
        die "/sbin/shutdown is not the stub"
    fi
    /sbin/shutdown --help
    [ "$(cat /sbin/shutdown.record)" = "/sbin/shutdown --help" ] || die "/sbin/shutdown does not run the stub"
}
