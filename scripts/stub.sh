# Sourced by what runs the monitor in namespaces of its own: a stub in the place of /sbin/shutdown.

# The monitor can halt a node: nothing but a stub may be there for it. The whole directory is covered, since the name in
# it may be a link to a program that other names share. Ends the script when the stub is not in place.
cover_shutdown() {
    local directory

    [ $$ -eq 1 ] || die "not in a process namespace of its own"
    directory=$(realpath /sbin)
    mount -t tmpfs -o mode=0755 tmpfs "$directory"
    printf '#!/bin/sh\necho "$*" >>%s/shutdown.called\n' "$directory" >/sbin/shutdown
    chmod 0755 /sbin/shutdown
    [ ! -L /sbin/shutdown ] && [ "$(stat -f -c %T /sbin/shutdown)" = tmpfs ] || die "/sbin/shutdown is not the stub"
    /sbin/shutdown --help
    [ "$(cat "$directory/shutdown.called")" = --help ] || die "/sbin/shutdown does not run the stub"
}
