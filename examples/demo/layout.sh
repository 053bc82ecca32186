#!/bin/sh
# Lays out the sample installation from a build:
#
#   layout.sh BUILD_DIR TARGET_DIR
#
# TARGET_DIR must be missing or empty; it becomes the installation directory. Everything in it belongs to root and is
# writable by root alone, as the policy library trusts nothing else. Exit status: 0 done, 1 failed, 2 wrong arguments.

umask 022
name=$(basename -- "$0")
services='dusko pelkant tamzile goru lenk'
libraries='libtesklog.so.1.0 libteskxml.so.1.0'
max_path=900 # bytes; the monitor's paths have 1023 for it and for what follows

fail()
{
    printf '%s: %s\n' "$name" "$1" >&2
    exit "${2:-1}"
}

# Directories with what they are for: programs and libraries; policy, its schemas, and the operator's hooks of the two
# commands; logs, which the collector packs; dumps, which it packs too; archives; control FIFOs and process ids; lock files.
make_directories()
{
    install -d -m 0755 -- "$target" &&
        install -d -m 0755 -- "$target/bin" "$target/lib" "$target/lib/builtin" "$target/etc" "$target/etc/policy" \
            "$target/etc/schema" "$target/etc/hook" "$target/work" "$target/run" "$target/var" "$target/var/lock" &&
        install -d -m 0750 -- "$target/log" &&
        install -d -m 0700 -- "$target/archive" "$target/work/dump"
}

copy_program()
{
    [ -f "$build/$1" ] || fail "'$build' is no complete build: no $1"
    install -m 0755 -- "$build/$1" "$target/$2" || fail "cannot copy $1"
}

# Each service gets a copy of its own: the monitor recognises a running service by its executable.
copy_programs()
{
    for program in monp monpctl sample_collect sample_redact sample_cl sample_down; do
        copy_program "bin/$program" "bin/$program"
    done
    for service in $services; do
        copy_program bin/sample_service "bin/sample_$service"
    done
    for library in $libraries; do
        copy_program "lib/builtin/$library" "lib/builtin/$library"
    done
}

# The path goes into XML text, through a replacement text of sed: escaped for both.
fill_in_policy()
{
    escaped=$(printf '%s' "$target" | sed -e 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g' -e 's/[\\|&]/\\&/g')
    for file in "$source"/etc/config.xml "$source"/etc/policy/*.xml; do
        copy=$target/etc/${file#"$source/etc/"}
        sed -e "s|@INSTPATH@|$escaped|g" -- "$file" >"$copy" || fail "cannot write '$copy'"
    done
}

copy_schemas()
{
    install -m 0644 -- "$source"/schema/*.rng "$target/etc/schema" || fail "cannot copy the schemas"
}

check_target()
{
    case $target in
    *[[:cntrl:]]* | *' ' | /) fail "'$target' cannot be the installation directory" 2 ;;
    esac
    [ "$(printf '%s' "$target" | wc -c)" -le $max_path ] || fail "'$target' is longer than $max_path bytes" 2
    printf '%s' "$target" | iconv -f UTF-8 -t UTF-8 >/dev/null 2>&1 || fail "'$target' is no UTF-8 text" 2
    if [ -e "$target" ] && [ -n "$(ls -A -- "$target")" ]; then
        fail "'$target' is not empty"
    fi
}

[ $# -eq 2 ] || fail "usage: $name BUILD_DIR TARGET_DIR" 2
[ "$(id -u)" -eq 0 ] || fail "must be run by root, to whom the installation has to belong"
source=$(cd -P -- "$(dirname -- "$0")" && pwd) || fail "cannot find my own directory"
build=$(cd -P -- "$1" && pwd) || fail "no build directory '$1'"
# The "." keeps a newline at the end, which is refused below, from being lost.
target=$(realpath -m -- "$2" && printf .) || fail "'$2' is no path" 2
target=${target%??}

check_target
make_directories || fail "cannot make the directories of '$target'"
copy_programs
fill_in_policy
copy_schemas
printf 'laid out in %s\n' "$target"
